// Certificates as they are in use: those that Debian trusts.
#include "cacertificates.h"

#include "asn1support.h"
#include "nametext.h"

namespace asn1_test {
namespace {

TEST(CaCertificates, KeepTheirBytes) {
    for (const auto& [file, der] : caCertificates())
        EXPECT_EQ(encoded(decoded<asn1::Certificate>(der)), der) << file;
}

TEST(CaCertificates, AreTheirValues) {
    for (const auto& [file, der] : caCertificates()) {
        const auto certificate = decoded<asn1::Certificate>(der);
        EXPECT_EQ(encoded(asn1::Certificate(certificate.values())), der) << file;
        EXPECT_EQ(encoded(decoded<asn1::Signed>(der)), der) << file;
    }
}

TEST(CaCertificates, HaveNamesAndTimesAsText) {
    for (const auto& [file, der] : caCertificates()) {
        const auto certificate = decoded<asn1::Certificate>(der);
        EXPECT_FALSE(toText(certificate.subject().rdnSequence).empty()) << file;
        EXPECT_FALSE(toText(certificate.issuer().rdnSequence).empty()) << file;
        const std::string notAfter = asciiOf(certificate.validity().notAfter.text());
        EXPECT_GT(notAfter, "2000-01-01T00:00:00Z") << file;
        EXPECT_EQ(notAfter.size(), std::string_view("2000-01-01T00:00:00Z").size()) << file;
    }
}

TEST(CaCertificates, CutShortAnywhereDoNotMatch) {
    const testsupport::Bytes& der = caCertificates().front().der;
    for (std::size_t size = 0; size != der.size(); ++size) {
        asn1::Certificate certificate;
        EXPECT_EQ(
            thrownBy([&] {
                decode({der.begin(), der.begin() + static_cast<std::ptrdiff_t>(size)}, certificate);
            }),
            mismatch(0));
    }
}

TEST(CaCertificates, WithAnOctetChangedEncodeToTheirInputOrAreRefused) {
    // What is accepted encodes to the same octets but for constructed bits.
    const testsupport::Bytes& der = caCertificates().front().der;
    std::size_t accepted = 0;
    for (std::size_t i = 0; i != der.size(); ++i)
        for (const unsigned char change : testsupport::fromHex("01 20 80 FF")) {
            testsupport::Bytes changed = der;
            changed[i] = static_cast<unsigned char>(changed[i] ^ change);
            asn1::Certificate certificate;
            if (thrownBy([&] { decode(changed, certificate); }).type != typeid(void))
                continue;
            ++accepted;
            const testsupport::Bytes written = encoded(certificate);
            EXPECT_TRUE(written == changed || (change == 0x20 && written == der))
                << i << " xor " << unsigned{change};
            EXPECT_EQ(encoded(asn1::Certificate(certificate.values())), written);
        }
    EXPECT_GT(accepted, 0u);
}

} // namespace
} // namespace asn1_test
