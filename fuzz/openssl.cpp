// Certificates as OpenSSL reads them. What only one of the two accepts is no finding: that differs
// from one version of OpenSSL to the next.
#include "opensslpeer.h"

#include "der.h"
#include "fuzztarget.h"

namespace fuzz {

void openssl(Input input) {
    asn1::Certificate certificate;
    if (!returns<asn1::QuorError_Asn1_Decode>([&] { asn1::der::decode(input, certificate); }))
        return;
    if (!testsupport::isAcceptedByOpenSsl(asn1::aux::encodeDer(certificate, false)))
        return;
    for (const std::string& difference : testsupport::differencesFromOpenSsl(certificate))
        throw Broken("OpenSSL reads otherwise: " + difference);
}

} // namespace fuzz
