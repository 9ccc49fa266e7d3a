// A certificate as it travels between token and store.
#pragma once

#include "buffer.h"
#include "certificate.h"

#include <map>

namespace pkcs11::certstoreupdater {

using buffer::Buffer;

/// A certificate object of a token, or a certificate of a store. The name of its key container
/// is the key under which a map holds it.
struct CertItem {
    Buffer<unsigned char> id;      ///< CKA_ID; null when the token gives no value
    Buffer<wchar_t> label;         ///< CKA_LABEL; empty when the token gives none
    asn1::Certificate certificate; ///< CKA_VALUE, decoded
};

/// Certificates by the name of their key container, in the order of the names' code units.
using CertMap = std::map<Buffer<wchar_t>, CertItem>;

} // namespace pkcs11::certstoreupdater
