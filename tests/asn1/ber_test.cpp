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

/// The DER of a string in segments.
template <class String>
Bytes joined(const char* hex) {
    return encoded(decodedBer<String>(fromHex(hex)));
}

TEST(BerSegments, OfAStringAreJoined) {
    EXPECT_EQ(joined<asn1::OctetString>("24 04 04 02 AA BB"), octetString({0xAA, 0xBB}));
    EXPECT_EQ(joined<asn1::OctetString>("24 07 04 01 AA 04 02 BB CC"),
              octetString({0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(joined<asn1::BitString>("23 08 03 02 00 AA 03 02 04 B0"), bitString({0xAA, 0xB0}, 4));
    EXPECT_EQ(joined<asn1::UTF8String>("2C 06 04 01 41 04 01 42"), utf8String("AB"));
    EXPECT_EQ(joined<asn1::PrintableString>("33 06 04 01 41 04 01 42"), printableString("AB"));
    EXPECT_EQ(joined<asn1::TeletexString>("34 03 04 01 E4"), teletexString({0xE4}));
    // A character may begin in one segment and end in the next.
    EXPECT_EQ(joined<asn1::BMPString>("3E 06 04 01 20 04 01 AC"), bmpString(u"\u20AC"));
    EXPECT_EQ(joined<asn1::UniversalString>("3C 08 04 01 00 04 03 00 20 AC"),
              universalString(U"\u20AC"));
    EXPECT_EQ(joined<asn1::UTCTime>("37 11 04 06 323630313031 04 07 3030303030305A"),
              utcTime("260101000000Z"));
    EXPECT_EQ(joined<asn1::GeneralizedTime>("38 13 04 08 3230323630313031 04 07 3030303030305A"),
              generalizedTime("20260101000000Z"));
}

TEST(BerSegments, MayHaveTheTagOfTheirString) {
    EXPECT_EQ(joined<asn1::UTF8String>("2C 06 0C 04 41 42 43 44"), utf8String("ABCD"));
    EXPECT_EQ(joined<asn1::UTF8String>("2C 06 0C 01 41 04 01 42"), utf8String("AB"));
    EXPECT_EQ(joined<asn1::UTCTime>("37 0F 17 0D 3236303130313030303030305A"),
              utcTime("260101000000Z"));
}

TEST(BerSegments, MayBeOfAnyLengthForm) {
    EXPECT_EQ(joined<asn1::OctetString>("24 80 04 01 AA 00 00"), octetString({0xAA}));
    EXPECT_EQ(joined<asn1::OctetString>("24 80 24 80 04 01 AA 00 00 04 81 01 BB 00 00"),
              octetString({0xAA, 0xBB}));
    EXPECT_EQ(joined<asn1::OctetString>("24 81 07 24 80 04 01 AA 00 00"), octetString({0xAA}));
    EXPECT_EQ(joined<asn1::BitString>("23 80 03 02 00 80 03 01 00 00 00"), bitString({0x80}));
}

TEST(BerSegments, MayBeEmptyOrNone) {
    EXPECT_EQ(joined<asn1::OctetString>("24 00"), octetString({}));
    EXPECT_EQ(joined<asn1::OctetString>("24 80 00 00"), octetString({}));
    EXPECT_EQ(joined<asn1::OctetString>("24 05 04 00 04 01 AA"), octetString({0xAA}));
    EXPECT_EQ(joined<asn1::BitString>("23 00"), bitString({}));
    EXPECT_EQ(joined<asn1::BitString>("23 07 03 01 00 03 02 01 FE"), bitString({0xFE}, 1));
}

TEST(BerSegments, OfManyOctetsAreJoined) {
    Bytes segments;
    Bytes octets;
    for (int i = 0; i != 100; ++i) {
        const Bytes part(7, static_cast<unsigned char>(i));
        segments = segments + octetString(part);
        octets = octets + part;
    }
    EXPECT_EQ(encoded(decodedBer<asn1::OctetString>(element(0x24, segments))), octetString(octets));
}

TEST(BerSegments, OfMembersAreJoined) {
    const Bytes der = fullCertificate()
                          .uniqueIds(fromHex("81 02 00 C1"))
                          .extensions({extension("1.2.3", {1, 2}, true)})
                          .signature(bitString({0x5A, 0xA0}, 4))
                          .build();
    const Bytes segmented = sequence(
        {objectIdentifier("1.2.3"), boolean(true), fromHex("24 80 04 01 01 04 01 02 00 00")});
    const Bytes ber = fullCertificate()
                          .uniqueIds(fromHex("A1 04 03 02 00 C1"))
                          .rawExtensions(explicitly(3, sequence({segmented})))
                          .signature(fromHex("23 08 03 02 00 5A 03 02 04 AF"))
                          .build();
    EXPECT_EQ(encoded(decodedBer<asn1::Certificate>(ber)), der);
    EXPECT_EQ(encoded(decodedBer<asn1::Signed>(ber)), der);
}

TEST(BerSegments, MayBeInSegmentsThirtyTwoDeep) {
    const auto inSegments = [](std::size_t depth) {
        Bytes string = octetString({0xAA});
        for (std::size_t i = 0; i != depth; ++i)
            string = element(0x24, string);
        return string;
    };
    EXPECT_EQ(encoded(decodedBer<asn1::OctetString>(inSegments(32))), octetString({0xAA}));
    asn1::OctetString octets;
    EXPECT_EQ(berThrows(inSegments(33), octets), mismatch(64));
    EXPECT_EQ(berThrows(nested(0x24, 10'000), octets).type,
              std::type_index(typeid(asn1::QuorError_Asn1_Decode)));
}

TEST(BerSegments, OfAnotherTypeAreRefused) {
    asn1::OctetString octets;
    EXPECT_EQ(berThrows(fromHex("24 06 04 01 AA 02 01 05"), octets), wrongTag("04", "02", 5));
    EXPECT_EQ(berThrows(fromHex("24 04 03 02 00 80"), octets), wrongTag("04", "03", 2));
    EXPECT_EQ(berThrows(fromHex("24 03 84 01 AA"), octets), wrongTag("04", "84", 2));
    EXPECT_EQ(berThrows(fromHex("24 80 24 80 0C 01 41 00 00 00 00"), octets),
              wrongTag("04", "0C", 4));
    asn1::BitString bits;
    EXPECT_EQ(berThrows(fromHex("23 04 04 02 00 80"), bits), wrongTag("03", "04", 2));
    asn1::UTF8String text;
    EXPECT_EQ(berThrows(fromHex("2C 03 13 01 41"), text), wrongTag("04 0C", "13", 2));
    // Octets behind a constructed bit that is only wrong are no segments either.
    EXPECT_EQ(berThrows(fromHex("2C 02 41 42"), text), wrongTag("04 0C", "41", 2));
    asn1::Certificate certificate;
    const Bytes wrong = fromHex("A1 04 81 02 00 C1");
    const Bytes input = fullCertificate().uniqueIds(wrong).build();
    EXPECT_EQ(berThrows(input, certificate), wrongTag("03", "81", offsetOf(wrong, input) + 2));
}

TEST(BerSegments, ThatAreMalformedAreRefused) {
    asn1::OctetString octets;
    EXPECT_EQ(berThrows(fromHex("24 03 04 02 AA BB"), octets), mismatch(2));
    EXPECT_EQ(berThrows(fromHex("24 01 04"), octets), mismatch(2));
    EXPECT_EQ(berThrows(fromHex("24 04 04 80 00 00"), octets), mismatch(2));
    EXPECT_EQ(berThrows(fromHex("24 05 04 01 AA 00 00"), octets), wrongTag("04", "00", 5));
    asn1::BMPString wide;
    EXPECT_EQ(berThrows(fromHex("3E 05 04 03 00 41 00"), wide), mismatch(0));
    asn1::UTCTime time;
    EXPECT_EQ(berThrows(fromHex("37 03 04 01 32"), time), mismatch(0));
}

TEST(BerSegments, OfABitStringHaveUnusedBitsOnlyInTheLastOne) {
    asn1::BitString bits;
    EXPECT_EQ(berThrows(fromHex("23 08 03 02 04 A0 03 02 00 80"), bits), mismatch(6));
    EXPECT_EQ(berThrows(fromHex("23 07 03 02 04 A0 03 01 00"), bits), mismatch(6));
    EXPECT_EQ(berThrows(fromHex("23 0A 23 04 03 02 04 A0 03 02 00 80"), bits), mismatch(8));
    EXPECT_EQ(berThrows(fromHex("23 04 03 02 08 80"), bits), mismatch(2));
    EXPECT_EQ(berThrows(fromHex("23 03 03 01 01"), bits), mismatch(2));
    EXPECT_EQ(berThrows(fromHex("23 02 03 00"), bits), mismatch(2));
    // Dirty ones are cleared, as in one piece.
    EXPECT_EQ(joined<asn1::BitString>("23 04 03 02 04 FF"), bitString({0xF0}, 4));
}

TEST(BerSegments, AreOfStringsOnly) {
    asn1::Integer number;
    EXPECT_EQ(berThrows(fromHex("22 80 02 01 05 00 00"), number), mismatch(0));
    asn1::Boolean flag;
    EXPECT_EQ(berThrows(fromHex("21 03 01 01 FF"), flag), mismatch(0));
}

TEST(BerSegments, LeaveTheTargetAsItWasWhenTheyAreRefused) {
    asn1::OctetString octets(bufferOf({1, 2, 3}));
    berThrows(fromHex("24 06 04 01 AA 02 01 05"), octets);
    EXPECT_EQ(encoded(octets), octetString({1, 2, 3}));
}

TEST(BerSegments, AreTakenForOctetsWhereDerIsDecoded) {
    EXPECT_EQ(encoded(decoded<asn1::OctetString>(fromHex("24 04 04 02 AA BB"))),
              octetString({0x04, 0x02, 0xAA, 0xBB}));
}

TEST(BerDecoding, RewritesExplicitTagsWhoseLengthIsLong) {
    const Bytes der = fullCertificate().build();
    EXPECT_EQ(encoded(decodedBer<asn1::Certificate>(
                  fullCertificate().version(fromHex("A0 81 03 02 01 02")).build())),
              der);
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
