// Certificates that many threads copy, read, compare and release at once. Worth most under the
// thread sanitizer.
#include "asn1support.h"
#include "nametext.h"
#include "oids.h"
#include "onallthreads.h"

#include <atomic>

namespace asn1_test {
namespace {

using asn1::Amatch;
using asn1::Certificate;
using testsupport::CertBuilder;
using testsupport::onAllThreads;
using testsupport::threadCount;

constexpr int rounds = 200;

Bytes authorityBytes() {
    return CertBuilder()
        .names("An authority with a name of some length", "Another authority")
        .extensions({testsupport::keyUsage({5, 6}), testsupport::basicConstraints(true)})
        .build();
}

std::string subjectOf(const Certificate& certificate) {
    return asciiOf(asn1::toText(certificate.subject().rdnSequence));
}

// Stands first: the table of attribute types is made by whichever thread needs it first.
TEST(CertificateOnManyThreads, IsReadCopiedAndComparedByAll) {
    const Bytes bytes = authorityBytes();
    const auto certificate = decoded<Certificate>(bytes);
    std::atomic<int> failures = 0;
    onAllThreads([&](int) {
        for (int i = 0; i != rounds; ++i) {
            const Certificate copy = certificate;
            const asn1::Signed values = certificate.values();
            if (subjectOf(copy) != "CN=An authority with a name of some length" ||
                !certificate.isAuthority() || copy.checkUsage(0) ||
                !certificate.hasExtension(asn1::id_ce_keyUsage) ||
                copy.cmp(certificate, Amatch::exact) != 0 ||
                Certificate(values).cmp(certificate, Amatch::exact) != 0 ||
                bytesOf(asn1::aux::encodeDer(certificate, false)) != bytes)
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
}

TEST(CertificateOnManyThreads, IsFreedByWhoeverComesLast) {
    const Bytes bytes = authorityBytes();
    for (int i = 0; i != rounds; ++i) {
        std::vector<Certificate> copies(threadCount, decoded<Certificate>(bytes));
        std::vector<asn1::Name> names(threadCount);
        onAllThreads([&](int number) {
            const auto mine = static_cast<std::size_t>(number);
            const Certificate certificate = std::move(copies[mine]);
            // A part outlives the certificate that it was read from.
            names[mine] = certificate.subject();
        });
        for (const asn1::Name& name : names)
            ASSERT_EQ(name.cmp(names[0], Amatch::exact), 0);
    }
}

TEST(CertificateOnManyThreads, IsDecodedOrRefusedByEachForItself) {
    const Bytes good = authorityBytes();
    const Bytes bad = CertBuilder().serialNumber(Bytes{0x02, 0x02, 0x00, 0x01}).build();
    std::atomic<int> failures = 0;
    onAllThreads([&](int number) {
        for (int i = 0; i != rounds; ++i) {
            const bool isGood = (i + number) % 2 == 0;
            const Thrown thrown = thrownBy([&] { decoded<Certificate>(isGood ? good : bad); });
            if (isGood != (thrown.type == std::type_index(typeid(void))))
                ++failures;
        }
    });
    EXPECT_EQ(failures, 0);
}

TEST(CertificateOnManyThreads, IsDecodedWhileAnotherThreadTurnsEncodedDefaultsOnAndOff) {
    const Bytes bytes = authorityBytes();
    std::atomic<int> failures = 0;
    onAllThreads([&](int number) {
        for (int i = 0; i != rounds; ++i)
            if (number == 0)
                asn1::acceptEncodedDefaults(i % 2 == 0);
            else if (!decoded<Certificate>(bytes).isAuthority())
                ++failures;
    });
    asn1::acceptEncodedDefaults(false);
    EXPECT_EQ(failures, 0);
}

} // namespace
} // namespace asn1_test
