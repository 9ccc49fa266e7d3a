// This library's certificates.
#include "certificate.h"
#include "der.h"
#include "nametext.h"
#include "oids.h"
#include "peer.h"

#include <string_view>

namespace bench {

namespace {

using buffer::BufferRange;

std::int64_t secondsOf(const asn1::Time& time) {
    const bool isUtc = time.chosen() == 0;
    const std::string_view text = isUtc ? time.utcTime.text() : time.generalTime.text();
    const auto twoDigits = [&](std::size_t at) {
        return (text[at] - '0') * 10 + text[at + 1] - '0';
    };
    std::size_t at = 0;
    int year = twoDigits(at);
    if (isUtc)
        year += year >= 50 ? 1900 : 2000;
    else
        year = year * 100 + twoDigits(at += 2);
    return bench::secondsOf(year, twoDigits(at + 2), twoDigits(at + 4), twoDigits(at + 6),
                            twoDigits(at + 8), twoDigits(at + 10));
}

class HeldCertificate : public Held {
public:
    explicit HeldCertificate(Der der) {
        asn1::der::decode({der.data(), der.size()}, certificate_);
        values_ = certificate_.values();
    }

    std::size_t encode() override { return asn1::aux::encodeDer(certificate_, false).size(); }
    std::size_t encodeAnew() override { return asn1::aux::encodeDer(values_, false).size(); }
    std::size_t copy() override {
        const asn1::Certificate copied(certificate_);
        return copied.encoding().size();
    }

private:
    asn1::Certificate certificate_;
    asn1::Signed values_;
};

class CertstoreupdaterPeer : public Peer {
public:
    std::string name() const override { return "certstoreupdater"; }
    std::string version() const override { return ""; }

    bool decode(Der der) override {
        asn1::Certificate certificate;
        asn1::der::decode({der.data(), der.size()}, certificate);
        return certificate.hasValue();
    }

    bool read(Der der, Facts& facts) override {
        asn1::Certificate certificate;
        asn1::der::decode({der.data(), der.size()}, certificate);

        const asn1::CertificateSerialNumber serialNumber = certificate.serialNumber();
        facts.setSerialNumber(serialNumber.contents().data(), serialNumber.contents().size());
        const asn1::Validity validity = certificate.validity();
        facts.notBefore = secondsOf(validity.notBefore);
        facts.notAfter = secondsOf(validity.notAfter);
        if (certificate.hasExtension(asn1::id_ce_keyUsage)) {
            asn1::KeyUsage usage;
            certificate.extensionValue(asn1::id_ce_keyUsage, usage);
            facts.keyUsage = usageBits(usage.octets().data(), usage.octets().size());
        }
        if (certificate.hasExtension(asn1::id_ce_basicConstraints)) {
            asn1::BasicConstraintsSyntax constraints;
            certificate.extensionValue(asn1::id_ce_basicConstraints, constraints);
            facts.isAuthority = constraints.isAuthority();
        }
        facts.nameLength = asn1::toText(certificate.subject().rdnSequence).size() +
                           asn1::toText(certificate.issuer().rdnSequence).size();
        return true;
    }

    Abilities abilities() const override { return {true, true, true}; }
    std::unique_ptr<Held> hold(Der der) override { return std::make_unique<HeldCertificate>(der); }
};

} // namespace

Peer& certstoreupdaterPeer() {
    static CertstoreupdaterPeer peer;
    return peer;
}

} // namespace bench
