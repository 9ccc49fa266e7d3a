// Certificates as OpenSSL reads them, which must accept what is accepted here.
#include "opensslpeer.h"

#include "der.h"
#include "fuzztarget.h"

namespace fuzz {

void openssl(Input input) {
    asn1::Certificate certificate;
    if (!returns<asn1::QuorError_Asn1_Decode>([&] { asn1::der::decode(input, certificate); }))
        return;
    require(testsupport::isAcceptedByOpenSslButForOpaqueParts(certificate), "OpenSSL refuses it");
    if (!testsupport::isAcceptedByOpenSsl(asn1::aux::encodeDer(certificate, false)))
        return;
    for (const std::string& difference : testsupport::differencesFromOpenSsl(certificate))
        throw Broken("OpenSSL reads otherwise: " + difference);
}

} // namespace fuzz
