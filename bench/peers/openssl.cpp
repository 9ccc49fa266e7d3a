// OpenSSL's certificates.
#include "peer.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>

namespace bench {

namespace {

template <auto Free>
struct FreeWith {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};
using Certificate = std::unique_ptr<X509, FreeWith<&X509_free>>;
using Bits = std::unique_ptr<ASN1_BIT_STRING, FreeWith<&ASN1_BIT_STRING_free>>;
using Constraints = std::unique_ptr<BASIC_CONSTRAINTS, FreeWith<&BASIC_CONSTRAINTS_free>>;
using Output = std::unique_ptr<BIO, FreeWith<&BIO_free_all>>;

Certificate decoded(Der der) {
    const unsigned char* position = der.data();
    return Certificate(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
}

std::int64_t seconds(const ASN1_TIME* time) {
    std::tm civil{};
    ASN1_TIME_to_tm(time, &civil);
    return secondsOf(civil.tm_year + 1900, civil.tm_mon + 1, civil.tm_mday, civil.tm_hour,
                     civil.tm_min, civil.tm_sec);
}

std::size_t render(const X509_NAME* name) {
    const Output output(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(output.get(), name, 0, XN_FLAG_RFC2253);
    return BIO_ctrl_pending(output.get());
}

class HeldCertificate : public Held {
public:
    explicit HeldCertificate(Der der) : certificate_(decoded(der)), changed_(decoded(der)) {
        // Forgets the bytes that the part which is signed was decoded from.
        i2d_re_X509_tbs(changed_.get(), nullptr);
    }

    std::size_t encode() override { return encode(certificate_); }
    std::size_t encodeAnew() override { return encode(changed_); }
    std::size_t copy() override {
        const Certificate copied(X509_dup(certificate_.get()));
        return copied ? 1 : 0;
    }

private:
    static std::size_t encode(const Certificate& certificate) {
        unsigned char* encoding = nullptr;
        const int size = i2d_X509(certificate.get(), &encoding);
        OPENSSL_free(encoding);
        return static_cast<std::size_t>(size);
    }

    Certificate certificate_;
    Certificate changed_;
};

class OpensslPeer : public Peer {
public:
    std::string name() const override { return "OpenSSL"; }
    std::string version() const override { return OpenSSL_version(OPENSSL_VERSION_STRING); }

    bool decode(Der der) override { return decoded(der) != nullptr; }

    bool read(Der der, Facts& facts) override {
        const Certificate certificate = decoded(der);
        if (!certificate)
            return false;
        const ASN1_INTEGER* serialNumber = X509_get0_serialNumber(certificate.get());
        facts.setSerialNumber(ASN1_STRING_get0_data(serialNumber),
                              static_cast<std::size_t>(ASN1_STRING_length(serialNumber)));
        facts.notBefore = seconds(X509_get0_notBefore(certificate.get()));
        facts.notAfter = seconds(X509_get0_notAfter(certificate.get()));
        if (const Bits usage{static_cast<ASN1_BIT_STRING*>(
                X509_get_ext_d2i(certificate.get(), NID_key_usage, nullptr, nullptr))})
            facts.keyUsage = usageBits(ASN1_STRING_get0_data(usage.get()),
                                       static_cast<std::size_t>(ASN1_STRING_length(usage.get())));
        if (const Constraints constraints{static_cast<BASIC_CONSTRAINTS*>(
                X509_get_ext_d2i(certificate.get(), NID_basic_constraints, nullptr, nullptr))})
            facts.isAuthority = constraints->ca != 0;
        facts.nameLength = render(X509_get_subject_name(certificate.get())) +
                           render(X509_get_issuer_name(certificate.get()));
        return true;
    }

    Abilities abilities() const override { return {true, true, true}; }
    std::unique_ptr<Held> hold(Der der) override { return std::make_unique<HeldCertificate>(der); }
};

} // namespace

Peer& opensslPeer() {
    static OpensslPeer peer;
    return peer;
}

} // namespace bench
