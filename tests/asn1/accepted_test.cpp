// What strict decoding accepts encodes to DER: to its own bytes but for constructed bits.
#include "acceptedcertificates.h"
#include "asn1support.h"

namespace asn1_test {
namespace {

class AcceptedCertificate : public ::testing::TestWithParam<Accepted> {};

TEST_P(AcceptedCertificate, EncodesToDer) {
    const auto certificate = decoded<asn1::Certificate>(GetParam().certificate);
    EXPECT_EQ(encoded(certificate), GetParam().encodesTo);
}

TEST_P(AcceptedCertificate, EncodesToTheSameFromItsValues) {
    const auto certificate = decoded<asn1::Certificate>(GetParam().certificate);
    EXPECT_EQ(encoded(asn1::Certificate(certificate.values())), GetParam().encodesTo);
    EXPECT_EQ(encoded(decoded<asn1::Signed>(GetParam().certificate)), GetParam().encodesTo);
}

TEST_P(AcceptedCertificate, IsAcceptedAsBerToo) {
    EXPECT_EQ(encoded(decodedBer<asn1::Certificate>(GetParam().certificate)), GetParam().encodesTo);
}

TEST_P(AcceptedCertificate, ChangesOnlyInItsConstructedBits) {
    testsupport::Bytes differing = GetParam().certificate;
    std::size_t changed = 0;
    for (std::size_t i = 0; i != differing.size(); ++i)
        if (differing[i] != GetParam().encodesTo.at(i)) {
            EXPECT_EQ(differing[i] ^ GetParam().encodesTo[i], 0x20);
            ++changed;
        }
    EXPECT_EQ(changed != 0, GetParam().reason == Reason::constructedBit);
}

INSTANTIATE_TEST_SUITE_P(Certificates, AcceptedCertificate,
                         ::testing::ValuesIn(acceptedCertificates()),
                         [](const auto& row) { return testNameOf(row.param.what); });

} // namespace
} // namespace asn1_test
