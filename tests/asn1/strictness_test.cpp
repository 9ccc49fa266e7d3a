// Every rule of DER that a certificate can break: each certificate of the table differs from a
// good one in one element, and is refused because of that.
#include "refusedcertificates.h"

#include <algorithm>
#include <set>

namespace asn1_test {
namespace {

using namespace testsupport;

std::vector<Refused> allRows() {
    std::vector<Refused> all;
    for (const RefusedPart& part : refusedCertificates())
        all.insert(all.end(), part.rows.begin(), part.rows.end());
    return all;
}

class StrictDecoding : public ::testing::TestWithParam<Refused> {};

TEST_P(StrictDecoding, RefusesACertificateWith) {
    asn1::Certificate certificate;
    EXPECT_EQ(thrownBy([&] { decode(GetParam().certificate, certificate); }), GetParam().error);
    EXPECT_FALSE(certificate.hasValue());
}

TEST_P(StrictDecoding, LeavesTheTargetAsItWasGiven) {
    const Bytes earlier = CertBuilder().build();
    auto certificate = decoded<asn1::Certificate>(earlier);
    auto values = decoded<asn1::Signed>(earlier);
    EXPECT_THROW(decode(GetParam().certificate, certificate), asn1::QuorError_Asn1_Decode);
    EXPECT_THROW(decode(GetParam().certificate, values), asn1::QuorError_Asn1_Decode);
    EXPECT_EQ(encoded(certificate), earlier);
    EXPECT_EQ(encoded(values), earlier);
}

TEST_P(StrictDecoding, RefusesTheSameForSeparateValues) {
    asn1::Signed values;
    EXPECT_EQ(thrownBy([&] { decode(GetParam().certificate, values); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Certificates, StrictDecoding, ::testing::ValuesIn(allRows()),
                         [](const auto& row) { return testNameOf(row.param.what); });

TEST(StrictDecodingTable, DiffersFromACertificateThatIsAccepted) {
    const Bytes good = fullCertificate().build();
    EXPECT_EQ(encoded(decoded<asn1::Certificate>(good)), good);
    for (const Refused& row : allRows())
        EXPECT_NE(row.certificate, good) << row.what;
}

TEST(StrictDecodingTable, HasNoCertificateTwice) {
    std::set<Bytes> certificates;
    for (const Refused& row : allRows())
        EXPECT_TRUE(certificates.insert(row.certificate).second) << row.what;
}

TEST(StrictDecodingTable, BreaksEachRule) {
    const std::vector<Refused> rows = allRows();
    for (const RuleText& rule : rulesOfDer())
        EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [&](const Refused& row) {
            return row.rule == rule.rule;
        })) << rule.text;
    for (const Refused& row : rows)
        EXPECT_EQ(std::count_if(rulesOfDer().begin(), rulesOfDer().end(),
                                [&](const RuleText& rule) { return rule.rule == row.rule; }),
                  1)
            << row.what;
}

} // namespace
} // namespace asn1_test
