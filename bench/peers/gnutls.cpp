// GnuTLS's certificates.
#include "peer.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <array>

namespace bench {

namespace {

class Certificate {
public:
    explicit Certificate(Der der) {
        gnutls_x509_crt_init(&certificate_);
        gnutls_datum_t data{const_cast<unsigned char*>(der.data()),
                            static_cast<unsigned>(der.size())};
        isValid_ = gnutls_x509_crt_import(certificate_, &data, GNUTLS_X509_FMT_DER) == 0;
    }
    ~Certificate() { gnutls_x509_crt_deinit(certificate_); }
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;

    bool isValid() const { return isValid_; }
    gnutls_x509_crt_t get() const { return certificate_; }

private:
    gnutls_x509_crt_t certificate_ = nullptr;
    bool isValid_ = false;
};

unsigned bitsOf(unsigned usage) {
    constexpr std::array bits{
        GNUTLS_KEY_DIGITAL_SIGNATURE, GNUTLS_KEY_NON_REPUDIATION, GNUTLS_KEY_KEY_ENCIPHERMENT,
        GNUTLS_KEY_DATA_ENCIPHERMENT, GNUTLS_KEY_KEY_AGREEMENT,   GNUTLS_KEY_KEY_CERT_SIGN,
        GNUTLS_KEY_CRL_SIGN,          GNUTLS_KEY_ENCIPHER_ONLY,   GNUTLS_KEY_DECIPHER_ONLY};
    unsigned result = 0;
    for (std::size_t i = 0; i != bits.size(); ++i)
        if ((usage & static_cast<unsigned>(bits[i])) != 0)
            result |= 1u << i;
    return result;
}

class GnutlsPeer : public Peer {
public:
    std::string name() const override { return "GnuTLS"; }
    std::string version() const override { return gnutls_check_version(nullptr); }

    bool decode(Der der) override { return Certificate(der).isValid(); }

    bool read(Der der, Facts& facts) override {
        const Certificate certificate(der);
        if (!certificate.isValid())
            return false;
        std::array<unsigned char, 64> serialNumber;
        std::size_t size = serialNumber.size();
        gnutls_x509_crt_get_serial(certificate.get(), serialNumber.data(), &size);
        facts.setSerialNumber(serialNumber.data(), size);
        facts.notBefore = gnutls_x509_crt_get_activation_time(certificate.get());
        facts.notAfter = gnutls_x509_crt_get_expiration_time(certificate.get());
        unsigned critical = 0;
        unsigned usage = 0;
        if (gnutls_x509_crt_get_key_usage(certificate.get(), &usage, &critical) == 0)
            facts.keyUsage = bitsOf(usage);
        unsigned isAuthority = 0;
        if (gnutls_x509_crt_get_basic_constraints(certificate.get(), &critical, &isAuthority,
                                                  nullptr) >= 0)
            facts.isAuthority = isAuthority != 0;
        std::array<char, 2048> text;
        size = text.size();
        gnutls_x509_crt_get_dn(certificate.get(), text.data(), &size);
        facts.nameLength = size;
        size = text.size();
        gnutls_x509_crt_get_issuer_dn(certificate.get(), text.data(), &size);
        facts.nameLength += size;
        return true;
    }
};

} // namespace

Peer& gnutlsPeer() {
    static GnutlsPeer peer;
    return peer;
}

} // namespace bench
