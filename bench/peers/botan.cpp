// Botan's certificates.
#include "peer.h"

#include <botan/asn1_time.h>
#include <botan/exceptn.h>
#include <botan/version.h>
#include <botan/x509_ext.h>
#include <botan/x509cert.h>

namespace bench {

namespace {

std::int64_t seconds(const Botan::X509_Time& time) {
    return static_cast<std::int64_t>(time.time_since_epoch());
}

class BotanPeer : public Peer {
public:
    std::string name() const override { return "Botan"; }
    std::string version() const override { return Botan::short_version_string(); }

    bool decode(Der der) override {
        try {
            Botan::X509_Certificate(der.data(), der.size());
            return true;
        } catch (const Botan::Exception&) {
            return false;
        }
    }

    bool read(Der der, Facts& facts) override {
        const Botan::X509_Certificate certificate(der.data(), der.size());
        const std::vector<std::uint8_t>& serialNumber = certificate.serial_number();
        facts.setSerialNumber(serialNumber.data(), serialNumber.size());
        facts.notBefore = seconds(certificate.not_before());
        facts.notAfter = seconds(certificate.not_after());
        // Bit 0 of the extension is the highest of 16 bits.
        const auto usage = static_cast<unsigned>(certificate.constraints());
        const unsigned char octets[] = {static_cast<unsigned char>(usage >> 8),
                                        static_cast<unsigned char>(usage)};
        facts.keyUsage = usageBits(octets, sizeof octets);
        const auto* constraints =
            certificate.v3_extensions()
                .get_extension_object_as<Botan::Cert_Extension::Basic_Constraints>();
        facts.isAuthority = constraints && constraints->get_is_ca();
        facts.nameLength = certificate.subject_dn().to_string().size() +
                           certificate.issuer_dn().to_string().size();
        return true;
    }
};

} // namespace

Peer& botanPeer() {
    static BotanPeer peer;
    return peer;
}

} // namespace bench
