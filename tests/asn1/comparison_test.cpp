// Equality and order of values, by value and by encoding.
#include "asn1support.h"

#include <functional>

namespace asn1_test {
namespace {

using namespace testsupport;

int exactly(const asn1::Asn1& a, const asn1::Asn1& b) {
    return a.cmp(b, asn1::Amatch::exact);
}

/// Every value of the list equals a copy of itself and comes before those behind it.
template <class Value>
void expectAscending(const std::vector<Value>& values) {
    for (std::size_t i = 0; i != values.size(); ++i)
        for (std::size_t j = 0; j != values.size(); ++j) {
            const Value copy = values[j];
            EXPECT_EQ(exactly(values[i], copy), i < j ? -1 : i > j ? 1 : 0) << i << ", " << j;
        }
}

template <class Value>
std::vector<Value> decodedAll(const std::vector<Bytes>& encodings) {
    std::vector<Value> values;
    for (const Bytes& encoding : encodings)
        values.push_back(decoded<Value>(encoding));
    return values;
}

TEST(Comparison, OrdersBooleans) {
    expectAscending<asn1::Boolean>({asn1::Boolean(), asn1::Boolean(false), asn1::Boolean(true)});
}

TEST(Comparison, OrdersObjectIdentifiersByTheirOctets) {
    using asn1::ObjectIdentifier;
    expectAscending<ObjectIdentifier>({ObjectIdentifier(), ObjectIdentifier("1.2"),
                                       ObjectIdentifier("1.2.3"), ObjectIdentifier("1.2.3.4"),
                                       ObjectIdentifier("1.2.4"), ObjectIdentifier("2.5.4.3"),
                                       ObjectIdentifier("2.999")});
    EXPECT_TRUE(ObjectIdentifier("1.2.3") == ObjectIdentifier("1.2.3"));
    EXPECT_TRUE(ObjectIdentifier("1.2.3") < ObjectIdentifier("1.2.4"));
    EXPECT_TRUE(ObjectIdentifier("1.2.3") != ObjectIdentifier("1.2.3.0"));
}

TEST(Comparison, OrdersStringsByTheirOctets) {
    expectAscending<asn1::OctetString>(
        {asn1::OctetString(), asn1::OctetString(bufferOf({})), asn1::OctetString(bufferOf({0})),
         asn1::OctetString(bufferOf({0, 1})), asn1::OctetString(bufferOf({0x7F})),
         asn1::OctetString(bufferOf({0x80}))});
    expectAscending<asn1::UTF8String>({asn1::UTF8String(),
                                       asn1::UTF8String(bufferOf(fromText("A"))),
                                       asn1::UTF8String(bufferOf(fromText("a")))});
}

TEST(Comparison, TellsIntegersApart) {
    for (const std::int64_t a : {-256, -1, 0, 1, 127, 128, 65536})
        for (const std::int64_t b : {-256, -1, 0, 1, 127, 128, 65536})
            EXPECT_EQ(exactly(asn1::Integer(a), asn1::Integer(b)) == 0, a == b);
}

TEST(Comparison, TellsBitStringsWithDifferentUnusedBitsApart) {
    const Bytes zero{0x00};
    EXPECT_NE(exactly(asn1::BitString(rangeOf(zero), 1), asn1::BitString(rangeOf(zero), 2)), 0);
    EXPECT_EQ(exactly(asn1::BitString(rangeOf({0xFF}), 7), asn1::BitString(rangeOf({0x80}), 7)), 0);
}

TEST(Comparison, OrdersTimesOfOneForm) {
    expectAscending<asn1::Time>({asn1::Time(), asn1::Time(asn1::UTCTime("260101000000Z")),
                                 asn1::Time(asn1::UTCTime("260101000001Z")),
                                 asn1::Time(asn1::GeneralizedTime("20260101000000Z"))});
}

TEST(Comparison, OrdersOpenTypesByTheirEncodings) {
    expectAscending<asn1::OpenType>({asn1::OpenType(), asn1::OpenType(asn1::Boolean(true)),
                                     asn1::OpenType(asn1::Integer(0)),
                                     asn1::OpenType(asn1::Integer(1))});
}

TEST(Comparison, OrdersLists) {
    expectAscending(decodedAll<asn1::RDNSequence>(
        {name({}), name({{"C", "A"}}), name({{"C", "A"}, {"O", "B"}}), name({{"C", "B"}})}));
    EXPECT_EQ(exactly(asn1::RDNSequence(), decoded<asn1::RDNSequence>(name({}))), -1);
}

TEST(Comparison, OrdersNames) {
    expectAscending<asn1::Name>(
        {asn1::Name(), decoded<asn1::Name>(name({})), decoded<asn1::Name>(name({{"CN", "A"}}))});
}

TEST(Comparison, OrdersCertificates) {
    expectAscending(decodedAll<asn1::Certificate>({CertBuilder().serialNumber(1).build(),
                                                   CertBuilder().serialNumber(2).build(),
                                                   CertBuilder().serialNumber(3).build()}));
    EXPECT_EQ(exactly(asn1::Certificate(), asn1::Certificate()), 0);
    EXPECT_EQ(exactly(asn1::Certificate(), decoded<asn1::Certificate>(CertBuilder().build())), -1);
}

using Change = std::function<void(asn1::Signed&)>;

TEST(Comparison, SeesEachMemberOfACertificate) {
    const auto original = decoded<asn1::Signed>(fullCertificate().build());
    const std::vector<Change> changes = {
        [](asn1::Signed& all) { all.toBeSigned.version.reset(); },
        [](asn1::Signed& all) { all.toBeSigned.serialNumber = asn1::Integer(1); },
        [](asn1::Signed& all) { all.toBeSigned.signature.parameters.reset(); },
        [](asn1::Signed& all) {
            all.toBeSigned.signature.algorithm = asn1::ObjectIdentifier("1.2");
        },
        [](asn1::Signed& all) { all.toBeSigned.issuer.rdnSequence.clear(); },
        [](asn1::Signed& all) { all.toBeSigned.validity.notBefore = {}; },
        [](asn1::Signed& all) { all.toBeSigned.validity.notAfter.choose(0); },
        [](asn1::Signed& all) { all.toBeSigned.subject = {}; },
        [](asn1::Signed& all) { all.toBeSigned.subjectPublicKeyInfo.subjectPublicKey = {}; },
        [](asn1::Signed& all) { all.toBeSigned.issuerUId.reset(); },
        [](asn1::Signed& all) { all.toBeSigned.subjectUId.reset(); },
        [](asn1::Signed& all) { all.toBeSigned.extensions.reset(); },
        [](asn1::Signed& all) { all.toBeSigned.extensions->clear(); },
        [](asn1::Signed& all) { all.algorithm.parameters = asn1::OpenType(asn1::Integer(1)); },
        [](asn1::Signed& all) { all.signature = {}; },
    };
    for (std::size_t i = 0; i != changes.size(); ++i) {
        asn1::Signed changed = original;
        EXPECT_EQ(exactly(original, changed), 0) << i;
        changes[i](changed);
        EXPECT_NE(exactly(original, changed), 0) << i;
        EXPECT_EQ(exactly(original, changed), -exactly(changed, original)) << i;
    }
}

TEST(Comparison, TakesAnAbsentMemberForItsDefault) {
    asn1::BasicConstraintsSyntax absent;
    asn1::BasicConstraintsSyntax present;
    present.cA = asn1::Boolean(false);
    EXPECT_EQ(exactly(absent, present), 0);
    EXPECT_EQ(exactly(present, absent), 0);
    present.cA = asn1::Boolean(true);
    EXPECT_EQ(exactly(absent, present), -1);
    EXPECT_EQ(exactly(present, absent), 1);

    asn1::CertificateV3 v1;
    asn1::CertificateV3 encodedV1;
    encodedV1.version = asn1::Version(0);
    EXPECT_EQ(exactly(v1, encodedV1), 0);
    encodedV1.version = asn1::Version(1);
    EXPECT_NE(exactly(v1, encodedV1), 0);
}

TEST(Comparison, TellsAMemberWithoutValueFromItsDefault) {
    asn1::BasicConstraintsSyntax absent;
    asn1::BasicConstraintsSyntax withoutValue;
    withoutValue.cA.emplace();
    EXPECT_EQ(exactly(absent, withoutValue), 1);
    EXPECT_EQ(exactly(withoutValue, absent), -1);
}

TEST(Comparison, TellsAnAbsentOptionalMemberFromAnyOther) {
    asn1::BasicConstraintsSyntax absent;
    asn1::BasicConstraintsSyntax present;
    present.pathLenConstraint = asn1::Integer(0);
    EXPECT_EQ(exactly(absent, present), -1);
    EXPECT_EQ(exactly(present, absent), 1);
}

TEST(Comparison, NeverTakesAPrintableStringForAUtf8String) {
    const asn1::PrintableString printable(bufferOf(fromText("A")));
    const asn1::UTF8String utf8(bufferOf(fromText("A")));
    EXPECT_NE(exactly(printable, utf8), 0);
    EXPECT_EQ(exactly(printable, utf8), -1) << "types are ordered by their names";
    EXPECT_EQ(exactly(utf8, printable), 1);
    asn1::DirectoryString a;
    a.printableString = printable;
    a.choose(1);
    asn1::DirectoryString b;
    b.utf8String = utf8;
    b.choose(3);
    EXPECT_NE(exactly(a, b), 0);
}

TEST(Comparison, LooksAtTheChosenAlternativeOnly) {
    asn1::DirectoryString a;
    a.utf8String = asn1::UTF8String(bufferOf(fromText("A")));
    a.choose(3);
    asn1::DirectoryString b = a;
    b.bmpString = asn1::BMPString(bufferOf({0, 0x42}));
    EXPECT_EQ(exactly(a, b), 0);
    b.choose(4);
    EXPECT_EQ(exactly(a, b), -1);
    // The first that is none, and one that is far from being one.
    for (const int none : {5, 99}) {
        b.choose(none);
        EXPECT_EQ(exactly(b, b), 0);
    }
}

TEST(Comparison, LooksAtValuesNotAtHowTheyCameToBe) {
    const Bytes der = fullCertificate().build();
    Bytes primitive = der;
    primitive[0] = 0x10;
    EXPECT_EQ(exactly(decoded<asn1::Certificate>(der), decoded<asn1::Certificate>(primitive)), 0);
    const auto values = decoded<asn1::Signed>(der);
    EXPECT_EQ(exactly(decoded<asn1::Certificate>(der), asn1::Certificate(values)), 0);
}

TEST(Comparison, InAnUnknownModeIsAnInvalidCall) {
    const Thrown expected =
        event<asn1::QuorError_Asn1_InvalidCall>({{"CAUSE", "UnknownMatchMode"}});
    const asn1::Integer number(1);
    for (const int mode : {1, 2, -1, 1000})
        EXPECT_EQ(thrownBy([&] { number.cmp(number, static_cast<asn1::Amatch>(mode)); }), expected);
}

TEST(ComparisonOfEncodings, OrdersByTheirOctets) {
    EXPECT_EQ(asn1::der::cmp(asn1::Integer(5), asn1::Integer(5), false), 0);
    EXPECT_EQ(asn1::der::cmp(asn1::Integer(5), asn1::Integer(6), false), -1);
    EXPECT_EQ(asn1::der::cmp(asn1::Integer(6), asn1::Integer(5), false), 1);
    EXPECT_EQ(asn1::der::cmp(asn1::Integer(255), asn1::Integer(5), false), 1);
}

TEST(ComparisonOfEncodings, SeesTagsUnlessOnlyContentsAreAskedFor) {
    const asn1::PrintableString printable(bufferOf(fromText("A")));
    const asn1::UTF8String utf8(bufferOf(fromText("A")));
    EXPECT_EQ(asn1::der::cmp(printable, utf8, false), 1);
    EXPECT_EQ(asn1::der::cmp(utf8, printable, false), -1);
    EXPECT_EQ(asn1::der::cmp(printable, utf8, true), 0);
}

TEST(ComparisonOfEncodings, ComparesACertificateWithItsValues) {
    const auto certificate = decoded<asn1::Certificate>(fullCertificate().build());
    EXPECT_EQ(asn1::der::cmp(certificate, certificate.values(), false), 0);
    EXPECT_EQ(asn1::der::cmp(certificate, certificate.values(), true), 0);
}

TEST(ComparisonOfEncodings, ThrowsWhatEncodingThrows) {
    EXPECT_EQ(thrownBy([] { asn1::der::cmp(asn1::Integer(1), asn1::Integer(), false); }),
              missingField("INTEGER", "INTEGER"));
}

} // namespace
} // namespace asn1_test
