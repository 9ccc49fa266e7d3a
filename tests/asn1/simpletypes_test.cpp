// Values without members: what they are made of and what they say.
#include "asn1support.h"
#include "buffererror.h"

#include <limits>

namespace asn1_test {
namespace {

using namespace testsupport;

TEST(Boolean, IsWrittenAsDer) {
    EXPECT_EQ(encoded(asn1::Boolean(true)), fromHex("01 01 FF"));
    EXPECT_EQ(encoded(asn1::Boolean(false)), fromHex("01 01 00"));
    EXPECT_TRUE(asn1::Boolean(true).value());
    EXPECT_FALSE(asn1::Boolean(false).value());
    EXPECT_EQ(thrownBy([] { asn1::Boolean().value(); }), unset("BOOLEAN"));
}

class IntegerValue : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(IntegerValue, ReadsBackAsItWasSet) {
    const asn1::Integer number(GetParam());
    EXPECT_EQ(number.value(), GetParam());
    EXPECT_EQ(encoded(number), integer(GetParam()));
    EXPECT_EQ(decoded<asn1::Integer>(integer(GetParam())).value(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(AtTheBoundaries, IntegerValue,
                         ::testing::Values(0, 1, -1, 127, 128, -128, -129, 255, 256, 32767, 32768,
                                           -32768, -32769, 0x7FFFFFFF, 0x80000000, -0x80000000LL,
                                           0x7FFFFFFFFFFFFF, 0x80000000000000,
                                           std::numeric_limits<std::int64_t>::max(),
                                           std::numeric_limits<std::int64_t>::min()));

TEST(Integer, IsWrittenWithoutRedundantOctets) {
    EXPECT_EQ(encoded(asn1::Integer(0)), fromHex("02 01 00"));
    EXPECT_EQ(encoded(asn1::Integer(128)), fromHex("02 02 00 80"));
    EXPECT_EQ(encoded(asn1::Integer(-128)), fromHex("02 01 80"));
    EXPECT_EQ(encoded(asn1::Integer(-129)), fromHex("02 02 FF 7F"));
}

TEST(Integer, DropsRedundantOctetsThatItIsMadeOf) {
    const auto made = [](const char* octets) {
        return bytesOf(asn1::Integer::fromTwosComplement(rangeOf(fromHex(octets))).contents());
    };
    EXPECT_EQ(made("00 00 05"), fromHex("05"));
    EXPECT_EQ(made("00 00 85"), fromHex("00 85"));
    EXPECT_EQ(made("FF FF 85"), fromHex("85"));
    EXPECT_EQ(made("FF FF 05"), fromHex("FF 05"));
    EXPECT_EQ(made("00"), fromHex("00"));
    EXPECT_EQ(made("00 00"), fromHex("00"));
    EXPECT_EQ(made("FF FF FF"), fromHex("FF"));
}

TEST(Integer, IsNotMadeOfNoOctets) {
    EXPECT_EQ(thrownBy([] { asn1::Integer::fromTwosComplement({}); }), settingValue("INTEGER"));
}

TEST(Integer, OfMoreThanSixtyFourBitsIsKeptButNotANumber) {
    const Bytes encoding = fromHex("02 09 00 FF FF FF FF FF FF FF FF");
    const auto number = decoded<asn1::Integer>(encoding);
    EXPECT_EQ(encoded(number), encoding);
    EXPECT_EQ(thrownBy([&] { number.value(); }),
              event<asn1::QuorError_Asn1_RangeViolation>({{"TYPE", "INTEGER"}}));
    const auto large = decoded<asn1::Integer>(element(0x02, Bytes(200, 0x55)));
    EXPECT_EQ(large.contents().size(), 200u);
    EXPECT_THROW(large.value(), asn1::QuorError_Asn1_RangeViolation);
}

TEST(Integer, WithoutValueIsUnset) {
    EXPECT_EQ(thrownBy([] { asn1::Integer().value(); }), unset("INTEGER"));
}

TEST(BitString, TellsBitsFromTheHighestOfTheFirstOctetOn) {
    const auto bits = decoded<asn1::BitString>(bitString({0x81, 0x40}, 6));
    for (std::size_t i = 0; i != 40; ++i)
        EXPECT_EQ(bits.bit(i), i == 0 || i == 7 || i == 9) << i;
    EXPECT_FALSE(bits.bit(std::numeric_limits<std::size_t>::max()));
    EXPECT_EQ(bits.unusedBits(), 6u);
    EXPECT_EQ(bytesOf(bits.octets()), fromHex("8140"));
}

TEST(BitString, ClearsUnusedBitsThatItIsMadeOf) {
    const Bytes octets{0xFF, 0xFF};
    EXPECT_EQ(encoded(asn1::BitString(rangeOf(octets), 0)), fromHex("03 03 00 FF FF"));
    EXPECT_EQ(encoded(asn1::BitString(rangeOf(octets), 3)), fromHex("03 03 03 FF F8"));
    EXPECT_EQ(encoded(asn1::BitString(rangeOf(octets), 7)), fromHex("03 03 07 FF 80"));
}

TEST(BitString, MayBeEmpty) {
    const asn1::BitString none({}, 0);
    EXPECT_EQ(encoded(none), fromHex("03 01 00"));
    EXPECT_FALSE(none.bit(0));
    EXPECT_TRUE(none.octets().empty());
    EXPECT_EQ(decoded<asn1::BitString>(fromHex("03 01 00")).unusedBits(), 0u);
}

TEST(BitString, HasAtMostSevenUnusedBits) {
    const Bytes octets{0xFF};
    EXPECT_EQ(thrownBy([&] { asn1::BitString(rangeOf(octets), 8); }), settingValue("BIT STRING"));
    EXPECT_EQ(thrownBy([] { asn1::BitString({}, 1); }), settingValue("BIT STRING"));
}

TEST(BitString, WithoutValueIsUnset) {
    const asn1::BitString bits;
    EXPECT_EQ(thrownBy([&] { bits.bit(0); }), unset("BIT STRING"));
    EXPECT_EQ(thrownBy([&] { bits.octets(); }), unset("BIT STRING"));
    EXPECT_EQ(thrownBy([&] { bits.unusedBits(); }), unset("BIT STRING"));
}

struct IdentifierRow {
    const char* text;
    const char* contents;
};

TEST(ObjectIdentifier, ReadsAndWritesItsArcs) {
    const IdentifierRow rows[] = {
        {"0.0", "00"},
        {"0.39", "27"},
        {"1.0", "28"},
        {"1.39", "4F"},
        {"2.0", "50"},
        {"2.39", "77"},
        {"2.40", "78"},
        {"2.47", "7F"},
        {"2.48", "81 00"},
        {"2.100.3", "81 34 03"},
        {"2.999.1", "88 37 01"},
        {"2.5.29.15", "55 1D 0F"},
        {"1.2.840.113549.1.1.11", "2A 86 48 86 F7 0D 01 01 0B"},
        {"1.2.127", "2A 7F"},
        {"1.2.128", "2A 81 00"},
        {"1.2.16383.16384", "2A FF 7F 81 80 00"},
        {"1.2.9223372036854775807", "2A FF FF FF FF FF FF FF FF 7F"},
        {"1.2.9223372036854775808", "2A 81 80 80 80 80 80 80 80 80 00"},
        {"1.2.18446744073709551615", "2A 81 FF FF FF FF FF FF FF FF 7F"},
        {"2.18446744073709551535", "81 FF FF FF FF FF FF FF FF 7F"},
    };
    for (const IdentifierRow& row : rows) {
        const Bytes contents = fromHex(row.contents);
        EXPECT_EQ(bytesOf(asn1::ObjectIdentifier(row.text).contents()), contents) << row.text;
        EXPECT_EQ(asciiOf(decoded<asn1::ObjectIdentifier>(element(0x06, contents)).text()),
                  row.text);
    }
}

TEST(ObjectIdentifier, WritesArcsOfAnySize) {
    const IdentifierRow rows[] = {
        {"1.2.18446744073709551616", "2A 82 80 80 80 80 80 80 80 80 00"},
        {"2.18446744073709551536", "82 80 80 80 80 80 80 80 80 00"},
        {"1.2.340282366920938463463374607431768211455",
         "2A 83 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF 7F"},
    };
    for (const IdentifierRow& row : rows) {
        const Bytes encoding = element(0x06, fromHex(row.contents));
        const auto identifier = decoded<asn1::ObjectIdentifier>(encoding);
        EXPECT_EQ(encoded(identifier), encoding);
        EXPECT_EQ(asciiOf(identifier.text()), row.text);
    }
}

TEST(ObjectIdentifier, IsNotMadeOfOtherTexts) {
    for (const std::string_view text : {"",
                                        ".",
                                        "1",
                                        "1.",
                                        ".1",
                                        "1..2",
                                        "1.2.",
                                        "3.1",
                                        "0.40",
                                        "1.40",
                                        "a",
                                        "1.a",
                                        "1.2a",
                                        "-1.2",
                                        "1.-2",
                                        "+1.2",
                                        " 1.2",
                                        "1.2 ",
                                        "01.2",
                                        "1.02",
                                        "1.2.00",
                                        "1,2",
                                        "1.2.18446744073709551616",
                                        "2.18446744073709551536",
                                        "99999999999999999999999.1"})
        EXPECT_EQ(thrownBy([&] { asn1::ObjectIdentifier identifier(text); }),
                  settingValue("OBJECT IDENTIFIER"))
            << text;
    EXPECT_EQ(thrownBy([] { asn1::ObjectIdentifier identifier{std::string_view()}; }),
              settingValue("OBJECT IDENTIFIER"));
}

TEST(ObjectIdentifier, HasABound) {
    const auto ofOctets = [](std::size_t count) {
        std::string text = "1.2";
        for (std::size_t i = 1; i != count; ++i)
            text += ".3";
        return text;
    };
    constexpr std::size_t most = 4096;
    EXPECT_EQ(asn1::ObjectIdentifier::maxContents, most);
    EXPECT_EQ(asn1::ObjectIdentifier(ofOctets(most)).contents().size(), most);
    EXPECT_EQ(thrownBy([&] { asn1::ObjectIdentifier identifier(ofOctets(most + 1)); }),
              settingValue("OBJECT IDENTIFIER"));
    // One arc of as many octets as there may be.
    const Bytes longest = Bytes(most - 1, 0xFF) + Bytes{0x7F};
    const auto identifier = decoded<asn1::ObjectIdentifier>(element(0x06, longest));
    EXPECT_GT(identifier.text().size(), 8000u);
}

TEST(ObjectIdentifier, WithoutValueIsUnset) {
    EXPECT_EQ(thrownBy([] { asn1::ObjectIdentifier().text(); }), unset("OBJECT IDENTIFIER"));
}

TEST(CharacterString, GivesItsText) {
    EXPECT_EQ(unitsOf(asn1::UTF8String(bufferOf(fromText("\xC3\xA9"))).text()), u"\u00E9");
    EXPECT_EQ(unitsOf(asn1::PrintableString(bufferOf(fromText("A b"))).text()), u"A b");
    EXPECT_EQ(unitsOf(asn1::TeletexString(bufferOf({0xE9})).text()), u"\u00E9");
    EXPECT_EQ(unitsOf(asn1::BMPString(bufferOf({0x20, 0xAC})).text()), u"\u20AC");
    EXPECT_EQ(unitsOf(asn1::UniversalString(bufferOf({0, 0, 0x20, 0xAC})).text()), u"\u20AC");
}

TEST(CharacterString, OfNoCharactersHasEmptyText) {
    EXPECT_EQ(asn1::UTF8String(bufferOf({})).text().size(), 0u);
    EXPECT_FALSE(asn1::UTF8String(bufferOf({})).text().isNull());
    EXPECT_EQ(asn1::BMPString(bufferOf({})).text().size(), 0u);
}

TEST(CharacterString, IsNotMadeOfHalfCharacters) {
    EXPECT_EQ(thrownBy([] { asn1::BMPString string(bufferOf({0})); }), settingValue("BMPString"));
    EXPECT_EQ(thrownBy([] {
                  asn1::UniversalString string(bufferOf({0, 0, 0}));
              }),
              settingValue("UniversalString"));
}

TEST(CharacterString, WithoutValueIsUnset) {
    EXPECT_EQ(thrownBy([] { asn1::UTF8String().text(); }), unset("UTF8String"));
    EXPECT_EQ(thrownBy([] { asn1::PrintableString().text(); }), unset("PrintableString"));
    EXPECT_EQ(thrownBy([] { asn1::TeletexString().text(); }), unset("TeletexString"));
    EXPECT_EQ(thrownBy([] { asn1::UniversalString().text(); }), unset("UniversalString"));
    EXPECT_EQ(thrownBy([] { asn1::BMPString().text(); }), unset("BMPString"));
}

TEST(Utf8String, ThatIsMalformedIsKeptButHasNoText) {
    const auto string = decoded<asn1::UTF8String>(utf8String("\xC3"));
    EXPECT_EQ(encoded(string), utf8String("\xC3"));
    EXPECT_THROW(string.text(), buffer::BufferError_InvalidEncodingUnit);
}

TEST(OpenType, HoldsTheEncodingOfAnyValue) {
    EXPECT_EQ(encoded(asn1::OpenType(asn1::Integer(5))), integer(5));
    const auto certificate = decoded<asn1::Certificate>(CertBuilder().build());
    EXPECT_EQ(encoded(asn1::OpenType(certificate)), CertBuilder().build());
    EXPECT_EQ(encoded(asn1::OpenType(asn1::OpenType(asn1::Boolean(true)))), boolean(true));
    EXPECT_EQ(thrownBy([] { asn1::OpenType open{asn1::Integer()}; }),
              missingField("INTEGER", "INTEGER"));
}

TEST(OpenType, IsMadeOfExactlyOneElement) {
    EXPECT_EQ(encoded(asn1::OpenType::fromEncoding(bufferOf(fromHex("30 02 FF FF")))),
              fromHex("30 02 FF FF"));
    for (const char* encoding :
         {"", "05", "05 00 00", "05 01", "05 81 00", "30 80 00 00", "00 00", "20 00", "1F 05 00"})
        EXPECT_EQ(thrownBy([&] { asn1::OpenType::fromEncoding(bufferOf(fromHex(encoding))); }),
                  settingValue("ANY"))
            << encoding;
    EXPECT_EQ(thrownBy([] { asn1::OpenType::fromEncoding({}); }), settingValue("ANY"));
}

} // namespace
} // namespace asn1_test
