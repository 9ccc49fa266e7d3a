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

// Of strings BER does not ignore the constructed bit: it says that they are in segments.
TEST_P(AcceptedCertificate, IsAcceptedAsBerTooButForConstructedStrings) {
    asn1::Certificate certificate;
    const Thrown thrown = thrownBy([&] { decodeBer(GetParam().certificate, certificate); });
    if (!GetParam().hasConstructedString) {
        EXPECT_EQ(encoded(certificate), GetParam().encodesTo);
    } else if (certificate.hasValue()) {
        EXPECT_NE(encoded(certificate), GetParam().encodesTo);
    } else {
        EXPECT_EQ(thrown.type, std::type_index(typeid(asn1::QuorError_Asn1_Decode)));
    }
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
