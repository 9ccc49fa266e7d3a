// Decoding of BER: what extension values may be, and what DER is made of it.
#include "asn1support.h"

namespace asn1_test {
namespace {

using namespace testsupport;

Thrown berThrows(const Bytes& input, asn1::Asn1& value, bool wholeInput = false) {
    return thrownBy([&] { decodeBer(input, value, wholeInput); });
}

TEST(BerDecoding, TakesLengthsInALongerForm) {
    EXPECT_EQ(decodedBer<asn1::Integer>(fromHex("02 81 01 05")).value(), 5);
    EXPECT_EQ(decodedBer<asn1::Integer>(fromHex("02 83 00 00 01 05")).value(), 5);
    EXPECT_EQ(encoded(decodedBer<asn1::Integer>(fromHex("02 82 00 01 05"))), integer(5));
}

TEST(BerDecoding, TakesIndefiniteLengthsAtEveryLevel) {
    const auto open = [](unsigned char identifier, const Bytes& contents) {
        return Bytes{identifier, 0x80} + contents + fromHex("0000");
    };
    const Bytes oid = objectIdentifier("1.2.3");
    const auto names = [&](const char* text) {
        return open(0x30, open(0x31, open(0x30, objectIdentifier("2.5.4.3") + utf8String(text))));
    };
    const Bytes algorithm = open(0x30, oid + null());
    const Bytes key = open(0x30, algorithm + bitString({1, 2}));
    const Bytes validity = open(0x30, utcTime("260101000000Z") + utcTime("360101000000Z"));
    const Bytes extensions = open(
        0xA3, open(0x30, open(0x30, oid + boolean(true) + octetString(fromHex("30 80 00 00")))));
    const Bytes toBeSigned =
        open(0x30, open(0xA0, integer(2)) + integer(9) + algorithm + names("Issuer") + validity +
                       names("Subject") + key + fromHex("81 02 00 01") + extensions);
    const Bytes input = open(0x30, toBeSigned + algorithm + bitString({7}));

    const Bytes derAlgorithm = sequence({oid, null()});
    const Bytes der = CertBuilder()
                          .serialNumber(9)
                          .signatureAlgorithm(derAlgorithm)
                          .names("Subject", "Issuer")
                          .publicKey(sequence({derAlgorithm, bitString({1, 2})}))
                          .uniqueIds(fromHex("81 02 00 01"))
                          .extensions({extension("1.2.3", fromHex("30 80 00 00"), true)})
                          .signature(bitString({7}))
                          .build();
    EXPECT_EQ(encoded(decodedBer<asn1::Certificate>(input)), der);
    EXPECT_EQ(encoded(decodedBer<asn1::Signed>(input)), der);

    asn1::Certificate certificate;
    EXPECT_EQ(thrownBy([&] { decode(input, certificate); }),
              decodeError("UndefinedLengthPresentInDerEncoding", 0));
}

TEST(BerDecoding, WritesAStringWithoutOctetsAsDer) {
    EXPECT_EQ(encoded(decodedBer<asn1::OctetString>(fromHex("04 81 00"))), octetString({}));
}

TEST(BerDecoding, GivesAnOpenTypeOfIndefiniteLengthADefiniteOne) {
    const Bytes inner = sequence({integer(5)});
    EXPECT_EQ(encoded(decodedBer<asn1::OpenType>(fromHex("30 80") + inner + fromHex("0000"))),
              sequence({inner}));
    // Its contents stay BER: nobody knows their type.
    EXPECT_EQ(encoded(decodedBer<asn1::OpenType>(fromHex("3F 82 01 80 30 80 00 00 00 00"))),
              fromHex("3F 82 01 04 30 80 00 00"));
}

TEST(BerDecoding, RefusesAnIndefiniteLengthOfAPrimitiveElement) {
    asn1::OpenType open;
    EXPECT_EQ(berThrows(fromHex("04 80 00 00"), open), mismatch(0));
    asn1::OctetString octets;
    EXPECT_EQ(berThrows(fromHex("04 80 00 00"), octets), mismatch(0));
}

TEST(BerDecoding, RefusesAStringInSegmentsOfIndefiniteLength) {
    asn1::OctetString octets;
    EXPECT_EQ(berThrows(fromHex("24 80 04 01 AA 00 00"), octets), mismatch(0));
}

TEST(BerDecoding, RefusesAnIndefiniteLengthThatDoesNotEnd) {
    asn1::OpenType open;
    EXPECT_EQ(berThrows(fromHex("30 80"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 00"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 02 01 05"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 02 05 05 00 00"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 30 80 00 00"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 04 80 00 00 00 00"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 00 01 05 00 00"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 20 00 00 00"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 1F"), open), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("30 80 02"), open), mismatch(0));
}

TEST(BerDecoding, RefusesAnInnerIndefiniteLengthThatEndsBehindItsOwner) {
    asn1::AlgorithmIdentifier algorithm;
    // The outer length covers the inner header only, not its end-of-contents octets.
    EXPECT_EQ(berThrows(fromHex("30 06 06 02 2A 03 30 80 00 00"), algorithm), mismatch(6));
}

TEST(BerDecoding, TakesAnyBooleanButZeroAsTrue) {
    for (const unsigned char octet : fromHex("01 7F 80 FE FF")) {
        const auto value = decodedBer<asn1::Boolean>(Bytes{0x01, 0x01, octet});
        EXPECT_TRUE(value.value());
        EXPECT_EQ(encoded(value), boolean(true));
    }
    EXPECT_FALSE(decodedBer<asn1::Boolean>(boolean(false)).value());
}

TEST(BerDecoding, ClearsUnusedBits) {
    const auto bits = decodedBer<asn1::BitString>(fromHex("03 03 04 FF FF"));
    EXPECT_EQ(encoded(bits), fromHex("03 03 04 FF F0"));
    EXPECT_TRUE(bits.bit(11));
    EXPECT_FALSE(bits.bit(12));
}

TEST(BerDecoding, TakesEncodedDefaultsAndDropsThem) {
    const auto constraints =
        decodedBer<asn1::BasicConstraintsSyntax>(sequence({boolean(false), integer(1)}));
    EXPECT_FALSE(constraints.cA);
    EXPECT_EQ(encoded(constraints), sequence({integer(1)}));

    const Bytes input = fullCertificate().version(explicitly(0, integer(0))).build();
    EXPECT_EQ(encoded(decodedBer<asn1::Certificate>(input)), fullCertificate().version({}).build());
}

TEST(BerDecoding, DropsEncodedDefaultsInTheMiddleOfLists) {
    const Bytes oid = objectIdentifier("1.2.3");
    const auto withCritical = [&](const Bytes& critical) {
        return sequence({oid, critical, octetString({1})});
    };
    const auto extensions = decodedBer<asn1::Extensions>(
        sequence({withCritical(boolean(false)), withCritical(boolean(true)),
                  withCritical(fromHex("01 01 02")), withCritical(boolean(false))}));
    EXPECT_EQ(encoded(extensions), sequence({withCritical({}), withCritical(boolean(true)),
                                             withCritical(boolean(true)), withCritical({})}));
}

TEST(BerDecoding, StillNeedsTheConstructedBitOfExplicitTags) {
    const Bytes version = fromHex("80 03 02 01 02");
    const Bytes input = fullCertificate().version(version).build();
    asn1::Certificate certificate;
    EXPECT_EQ(berThrows(input, certificate),
              decodeError("ExplicitTagWithoutConstructorBit", offsetOf(version, input)));
}

TEST(BerDecoding, RefusesRedundantOctetsOfIntegersAndIdentifiers) {
    asn1::Integer number;
    EXPECT_EQ(berThrows(fromHex("02 02 00 05"), number), mismatch(0));
    EXPECT_EQ(berThrows(fromHex("02 00"), number), mismatch(0));
    asn1::ObjectIdentifier identifier;
    EXPECT_EQ(berThrows(fromHex("06 03 80 2A 03"), identifier), mismatch(0));
    asn1::BitString bits;
    EXPECT_EQ(berThrows(fromHex("03 02 08 00"), bits), mismatch(0));
}

TEST(BerDecoding, IgnoresWhatFollowsTheValue) {
    asn1::Integer number;
    decodeBer(fromHex("02 01 05 FF FF"), number, false);
    EXPECT_EQ(number.value(), 5);
    EXPECT_EQ(encoded(number), integer(5));
}

TEST(BerDecoding, ConsumesTheValueFromTheFrontOfItsInput) {
    const Bytes three = fromHex("02 01 05 01 01 FF 05");
    buffer::BufferRange<unsigned char> input = rangeOf(three);
    asn1::Integer number;
    asn1::aux::decodeBer(input, number, false);
    EXPECT_EQ(input.begin(), three.data() + 3);
    asn1::Boolean flag;
    asn1::aux::decodeBer(input, flag, false);
    EXPECT_TRUE(flag.value());
    EXPECT_THROW(asn1::aux::decodeBer(input, number, false), asn1::QuorError_Asn1_Decode);
    EXPECT_EQ(input.size(), 1u) << "what cannot be decoded is not consumed";
}

TEST(BerDecoding, TellsOfWhatFollowsTheValueIfItIsAskedTo) {
    asn1::Integer number;
    EXPECT_EQ(berThrows(fromHex("02 01 05 FF FF"), number, true), surplus(3, 5));
    asn1::OpenType open;
    EXPECT_EQ(berThrows(fromHex("30 80 00 00 00"), open, true), surplus(4, 5));
    decodeBer(fromHex("30 80 00 00"), open, true);
    EXPECT_EQ(encoded(open), sequence({}));
}

TEST(BerDecoding, TellsOfAWrongTag) {
    asn1::Integer number(3);
    EXPECT_EQ(berThrows(boolean(true), number), wrongTag("02", "01", 0));
    EXPECT_EQ(number.value(), 3);
}

TEST(BerDecoding, LeavesTheTargetAsItWasWhenItFails) {
    asn1::BasicConstraintsSyntax constraints;
    constraints.cA = asn1::Boolean(true);
    constraints.pathLenConstraint = asn1::Integer(3);
    EXPECT_EQ(berThrows(sequence({boolean(true), fromHex("02 00")}), constraints), mismatch(5));
    EXPECT_TRUE(constraints.cA->value());
    EXPECT_EQ(constraints.pathLenConstraint->value(), 3);
}

TEST(BerDecoding, MakesMembersAbsentThatTheInputLacks) {
    asn1::BasicConstraintsSyntax constraints;
    constraints.cA = asn1::Boolean(true);
    constraints.pathLenConstraint = asn1::Integer(3);
    decodeBer(sequence({}), constraints);
    EXPECT_FALSE(constraints.cA);
    EXPECT_FALSE(constraints.pathLenConstraint);
}

TEST(BerDecoding, MayReadFromTheBytesOfItsOwnTarget) {
    auto value = asn1::OctetString(bufferOf(octetString(Bytes(40, 0x11))));
    asn1::aux::decodeBer(value.contents(), value, true);
    EXPECT_EQ(bytesOf(value.contents()), Bytes(40, 0x11));
}

} // namespace
} // namespace asn1_test
