// mbedTLS's certificates.
#include "peer.h"

#include <mbedtls/asn1write.h>
#include <mbedtls/oid.h>
#include <mbedtls/version.h>
#include <mbedtls/x509_crt.h>

#include <algorithm>
#include <array>
#include <deque>
#include <stdexcept>

namespace bench {

namespace {

class Certificate {
public:
    explicit Certificate(Der der) {
        mbedtls_x509_crt_init(&certificate_);
        isValid_ = mbedtls_x509_crt_parse_der(&certificate_, der.data(), der.size()) == 0;
    }
    ~Certificate() { mbedtls_x509_crt_free(&certificate_); }
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;

    bool isValid() const { return isValid_; }
    const mbedtls_x509_crt& get() const { return certificate_; }
    const mbedtls_x509_crt* operator->() const { return &certificate_; }

private:
    mbedtls_x509_crt certificate_;
    bool isValid_;
};

std::int64_t seconds(const mbedtls_x509_time& time) {
    return secondsOf(time.year, time.mon, time.day, time.hour, time.min, time.sec);
}

std::size_t render(const mbedtls_x509_name& name) {
    std::array<char, 2048> text;
    return static_cast<std::size_t>(mbedtls_x509_dn_gets(text.data(), text.size(), &name));
}

/// The library writes from the end to the beginning, and names and extensions too; so its lists
/// begin with what comes last.
using Reversed = std::deque<mbedtls_asn1_named_data>;

void prepend(Reversed& list, const mbedtls_asn1_buf& oid, const mbedtls_asn1_buf& value) {
    mbedtls_asn1_named_data entry{};
    entry.oid = oid;
    entry.val = value;
    entry.next = list.empty() ? nullptr : &list.front();
    list.push_front(entry);
}

Reversed reversed(const mbedtls_x509_name& name) {
    Reversed list;
    for (const mbedtls_x509_name* part = &name; part; part = part->next)
        prepend(list, part->oid, part->val);
    return list;
}

void require(bool holds) {
    if (!holds)
        throw std::runtime_error("mbedTLS cannot take a certificate apart");
}

mbedtls_asn1_buf element(unsigned char*& position, const unsigned char* end, int tag) {
    mbedtls_asn1_buf found{};
    found.tag = tag;
    require(mbedtls_asn1_get_tag(&position, end, &found.len, tag) == 0);
    found.p = position;
    position += found.len;
    return found;
}

/// What the values of a certificate are written from, with the library's own writers. The
/// library's way to write a certificate would sign it.
class Values {
public:
    explicit Values(const mbedtls_x509_crt& certificate)
        : certificate_(certificate), subject_(reversed(certificate.subject)),
          issuer_(reversed(certificate.issuer)) {
        readTimes();
        readExtensions();
        readSignature();
    }
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;

    /// \returns the encoding, which lies at the end of `room`
    Der write(std::span<unsigned char> room) {
        unsigned char* const start = room.data();
        unsigned char* const end = start + room.size();
        unsigned char* p = end;
        mbedtls_asn1_write_bitstring(&p, start, signature_.p + 1, (signature_.len - 1) * 8);
        writeAlgorithm(p, start);
        const unsigned char* const toBeSignedEnd = p;
        if (!extensions_.empty()) {
            const unsigned char* const extensionsEnd = p;
            mbedtls_x509_write_extensions(&p, start, &extensions_.front());
            writeHeader(p, start, extensionsEnd, constructed | MBEDTLS_ASN1_SEQUENCE);
            writeHeader(p, start, extensionsEnd, constructed | MBEDTLS_ASN1_CONTEXT_SPECIFIC | 3);
        }
        mbedtls_asn1_write_raw_buffer(&p, start, certificate_.pk_raw.p, certificate_.pk_raw.len);
        mbedtls_x509_write_names(&p, start, &subject_.front());
        const unsigned char* const validityEnd = p;
        writeTime(p, start, notAfter_);
        writeTime(p, start, notBefore_);
        writeHeader(p, start, validityEnd, constructed | MBEDTLS_ASN1_SEQUENCE);
        mbedtls_x509_write_names(&p, start, &issuer_.front());
        writeAlgorithm(p, start);
        const unsigned char* const serialEnd = p;
        mbedtls_asn1_write_raw_buffer(&p, start, certificate_.serial.p, certificate_.serial.len);
        writeHeader(p, start, serialEnd, MBEDTLS_ASN1_INTEGER);
        if (certificate_.version != 1) {
            const unsigned char* const versionEnd = p;
            mbedtls_asn1_write_int(&p, start, certificate_.version - 1);
            writeHeader(p, start, versionEnd, constructed | MBEDTLS_ASN1_CONTEXT_SPECIFIC | 0);
        }
        writeHeader(p, start, toBeSignedEnd, constructed | MBEDTLS_ASN1_SEQUENCE);
        writeHeader(p, start, end, constructed | MBEDTLS_ASN1_SEQUENCE);
        return {p, end};
    }

private:
    static constexpr unsigned char constructed = MBEDTLS_ASN1_CONSTRUCTED;

    static void writeHeader(unsigned char*& p, unsigned char* start, const unsigned char* end,
                            unsigned char tag) {
        mbedtls_asn1_write_len(&p, start, static_cast<std::size_t>(end - p));
        mbedtls_asn1_write_tag(&p, start, tag);
    }
    static void writeTime(unsigned char*& p, unsigned char* start, const mbedtls_asn1_buf& time) {
        mbedtls_asn1_write_tagged_string(&p, start, time.tag, reinterpret_cast<const char*>(time.p),
                                         time.len);
    }
    void writeAlgorithm(unsigned char*& p, unsigned char* start) const {
        const unsigned char* const end = p;
        if (hasParameters_)
            mbedtls_asn1_write_null(&p, start);
        mbedtls_asn1_write_oid(&p, start, reinterpret_cast<const char*>(certificate_.sig_oid.p),
                               certificate_.sig_oid.len);
        writeHeader(p, start, end, constructed | MBEDTLS_ASN1_SEQUENCE);
    }

    void readTimes() {
        unsigned char* p = certificate_.issuer_raw.p + certificate_.issuer_raw.len;
        const unsigned char* const end = certificate_.raw.p + certificate_.raw.len;
        std::size_t size = 0;
        require(mbedtls_asn1_get_tag(&p, end, &size, constructed | MBEDTLS_ASN1_SEQUENCE) == 0);
        notBefore_ = element(p, end, *p);
        notAfter_ = element(p, end, *p);
    }

    void readExtensions() {
        unsigned char* p = certificate_.v3_ext.p;
        const unsigned char* const end = p + certificate_.v3_ext.len;
        if (certificate_.v3_ext.len == 0)
            return;
        std::size_t size = 0;
        require(mbedtls_asn1_get_tag(&p, end, &size, constructed | MBEDTLS_ASN1_SEQUENCE) == 0);
        while (p != end) {
            require(mbedtls_asn1_get_tag(&p, end, &size, constructed | MBEDTLS_ASN1_SEQUENCE) == 0);
            const mbedtls_asn1_buf oid = element(p, end, MBEDTLS_ASN1_OID);
            int critical = 0;
            if (*p == MBEDTLS_ASN1_BOOLEAN)
                require(mbedtls_asn1_get_bool(&p, end, &critical) == 0);
            const mbedtls_asn1_buf octets = element(p, end, MBEDTLS_ASN1_OCTET_STRING);
            // The writer takes the critical mark from the octet before the value.
            std::vector<unsigned char>& value = extensionValues_.emplace_back();
            value.push_back(critical != 0 ? 1 : 0);
            value.insert(value.end(), octets.p, octets.p + octets.len);
            prepend(extensions_, oid, {MBEDTLS_ASN1_OCTET_STRING, value.size(), value.data()});
        }
    }

    void readSignature() {
        unsigned char* p = certificate_.tbs.p + certificate_.tbs.len;
        const unsigned char* const end = certificate_.raw.p + certificate_.raw.len;
        unsigned char* algorithm = element(p, end, constructed | MBEDTLS_ASN1_SEQUENCE).p;
        element(algorithm, p, MBEDTLS_ASN1_OID);
        hasParameters_ = algorithm != p;
        signature_ = element(p, end, MBEDTLS_ASN1_BIT_STRING);
    }

    const mbedtls_x509_crt& certificate_;
    Reversed subject_;
    Reversed issuer_;
    mbedtls_asn1_buf notBefore_{};
    mbedtls_asn1_buf notAfter_{};
    Reversed extensions_;
    std::deque<std::vector<unsigned char>> extensionValues_;
    bool hasParameters_ = false;
    mbedtls_asn1_buf signature_{};
};

class HeldCertificate : public Held {
public:
    explicit HeldCertificate(Der der)
        : certificate_(der), values_(certificate_.get()), room_(2 * der.size()) {
        if (!std::ranges::equal(values_.write(room_), der))
            throw std::runtime_error("mbedTLS writes another certificate");
    }

    std::size_t encode() override { return 0; }
    std::size_t encodeAnew() override { return values_.write(room_).size(); }
    std::size_t copy() override { return 0; }

private:
    Certificate certificate_;
    Values values_;
    std::vector<unsigned char> room_;
};

class MbedtlsPeer : public Peer {
public:
    std::string name() const override { return "mbedTLS"; }
    std::string version() const override {
        char text[16];
        mbedtls_version_get_string(text);
        return text;
    }

    bool decode(Der der) override { return Certificate(der).isValid(); }

    bool read(Der der, Facts& facts) override {
        const Certificate certificate(der);
        if (!certificate.isValid())
            return false;
        facts.setSerialNumber(certificate->serial.p, certificate->serial.len);
        facts.notBefore = seconds(certificate->valid_from);
        facts.notAfter = seconds(certificate->valid_to);
        if ((certificate->ext_types & MBEDTLS_X509_EXT_KEY_USAGE) != 0) {
            // The octets of the extension, the first one in the low 8 bits.
            const std::array octets{static_cast<unsigned char>(certificate->key_usage),
                                    static_cast<unsigned char>(certificate->key_usage >> 8)};
            facts.keyUsage = usageBits(octets.data(), octets.size());
        }
        facts.isAuthority = certificate->ca_istrue != 0;
        facts.nameLength = render(certificate->subject) + render(certificate->issuer);
        return true;
    }

    Abilities abilities() const override { return {false, true, false}; }
    std::unique_ptr<Held> hold(Der der) override { return std::make_unique<HeldCertificate>(der); }
};

} // namespace

Peer& mbedtlsPeer() {
    static MbedtlsPeer peer;
    return peer;
}

} // namespace bench
