// NSS's certificates.
#include "peer.h"

#include <cert.h>
#include <nss.h>
#include <secder.h>
#include <secitem.h>
#include <secport.h>

#include <cstring>
#include <memory>
#include <stdexcept>

// What the library calls CERT_DecodeDERCertificate in its headers it exports under this name.
extern "C" CERTCertificate* __CERT_DecodeDERCertificate(SECItem* der, PRBool copy, char* nickname);

namespace bench {

namespace {

struct Destroy {
    void operator()(CERTCertificate* certificate) const noexcept {
        CERT_DestroyCertificate(certificate);
    }
};
using Certificate = std::unique_ptr<CERTCertificate, Destroy>;

Certificate decoded(Der der) {
    SECItem item{siBuffer, const_cast<unsigned char*>(der.data()),
                 static_cast<unsigned>(der.size())};
    return Certificate(__CERT_DecodeDERCertificate(&item, PR_TRUE, nullptr));
}

std::size_t render(CERTName* name) {
    char* text = CERT_NameToAscii(name);
    const std::size_t length = std::strlen(text);
    PORT_Free(text);
    return length;
}

class NssPeer : public Peer {
public:
    NssPeer() {
        if (NSS_NoDB_Init(nullptr) != SECSuccess)
            throw std::runtime_error("NSS does not start");
    }

    std::string name() const override { return "NSS"; }
    std::string version() const override { return NSS_GetVersion(); }

    bool decode(Der der) override { return decoded(der) != nullptr; }

    bool read(Der der, Facts& facts) override {
        const Certificate certificate = decoded(der);
        if (!certificate)
            return false;
        facts.setSerialNumber(certificate->serialNumber.data, certificate->serialNumber.len);
        PRTime notBefore = 0;
        PRTime notAfter = 0;
        CERT_GetCertTimes(certificate.get(), &notBefore, &notAfter);
        facts.notBefore = notBefore / PR_USEC_PER_SEC;
        facts.notAfter = notAfter / PR_USEC_PER_SEC;
        SECItem usage{};
        if (CERT_FindKeyUsageExtension(certificate.get(), &usage) == SECSuccess) {
            facts.keyUsage = usageBits(usage.data, (usage.len + 7) / 8);
            PORT_Free(usage.data);
        }
        SECItem encoded{};
        if (CERT_FindCertExtension(certificate.get(), SEC_OID_X509_BASIC_CONSTRAINTS, &encoded) ==
            SECSuccess) {
            CERTBasicConstraints constraints{};
            if (CERT_DecodeBasicConstraintValue(&constraints, &encoded) == SECSuccess)
                facts.isAuthority = constraints.isCA != PR_FALSE;
            PORT_Free(encoded.data);
        }
        facts.nameLength = render(&certificate->subject) + render(&certificate->issuer);
        return true;
    }
};

} // namespace

Peer& nssPeer() {
    static NssPeer peer;
    return peer;
}

} // namespace bench
