// A token's certificates, sorted.
#pragma once

#include "certitem.h"

namespace pkcs11::certstoreupdater {

/// Every certificate of a token, in the first class that it belongs to. Of certificates with
/// one key container a class holds the one read first.
struct CertListPackage {
    CertMap selfSignedCerts;     ///< subject and issuer are the same name
    CertMap caCerts;             ///< certification authorities
    CertMap certsWithPrivateKey; ///< a private key on the token has the same CKA_ID
    CertMap otherCerts;          ///< all others
};

} // namespace pkcs11::certstoreupdater
