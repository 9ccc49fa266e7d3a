// libksba's certificates.
#include "peer.h"

#include <ksba.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace bench {

namespace {

struct Release {
    void operator()(ksba_cert_t certificate) const noexcept { ksba_cert_release(certificate); }
};
using Certificate = std::unique_ptr<std::remove_pointer_t<ksba_cert_t>, Release>;

Certificate decoded(Der der) {
    ksba_cert_t made = nullptr;
    if (ksba_cert_new(&made) != 0)
        return nullptr;
    Certificate certificate(made);
    return ksba_cert_init_from_mem(made, der.data(), der.size()) == 0 ? std::move(certificate)
                                                                      : nullptr;
}

/// An S-expression "(20:...)".
void setSerialNumber(const unsigned char* expression, Facts& facts) {
    char* digitsEnd = nullptr;
    const auto size = std::strtoul(reinterpret_cast<const char*>(expression) + 1, &digitsEnd, 10);
    facts.setSerialNumber(reinterpret_cast<const unsigned char*>(digitsEnd) + 1, size);
}

/// YYYYMMDDTHHMMSS
std::int64_t seconds(const char* time) {
    const auto twoDigits = [&](int at) { return (time[at] - '0') * 10 + time[at + 1] - '0'; };
    return secondsOf(twoDigits(0) * 100 + twoDigits(2), twoDigits(4), twoDigits(6), twoDigits(9),
                     twoDigits(11), twoDigits(13));
}

std::size_t freed(char* text) {
    const std::size_t length = std::strlen(text);
    ksba_free(text);
    return length;
}

class KsbaPeer : public Peer {
public:
    std::string name() const override { return "libksba"; }
    std::string version() const override { return ksba_check_version(nullptr); }

    bool decode(Der der) override { return decoded(der) != nullptr; }

    bool read(Der der, Facts& facts) override {
        const Certificate certificate = decoded(der);
        if (!certificate)
            return false;
        const ksba_sexp_t serialNumber = ksba_cert_get_serial(certificate.get());
        setSerialNumber(serialNumber, facts);
        ksba_free(serialNumber);
        ksba_isotime_t time;
        ksba_cert_get_validity(certificate.get(), 0, time);
        facts.notBefore = seconds(time);
        ksba_cert_get_validity(certificate.get(), 1, time);
        facts.notAfter = seconds(time);
        unsigned usage = 0;
        // Bits as this library numbers them: 1 is digitalSignature, 2 nonRepudiation and so on.
        if (ksba_cert_get_key_usage(certificate.get(), &usage) == 0)
            facts.keyUsage = usage;
        int isAuthority = 0;
        int pathLength = 0;
        if (ksba_cert_is_ca(certificate.get(), &isAuthority, &pathLength) == 0)
            facts.isAuthority = isAuthority != 0;
        facts.nameLength = freed(ksba_cert_get_subject(certificate.get(), 0)) +
                           freed(ksba_cert_get_issuer(certificate.get(), 0));
        return true;
    }
};

} // namespace

Peer& ksbaPeer() {
    static KsbaPeer peer;
    return peer;
}

} // namespace bench
