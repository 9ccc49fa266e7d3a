// Distinguished names as text.
#include "nametext.h"

#include "asn1support.h"
#include "buffererror.h"
#include "oids.h"

namespace asn1_test {
namespace {

using namespace testsupport;

std::string textOf(const Bytes& names) {
    return asciiOf(toText(decoded<asn1::RDNSequence>(names)));
}

asn1::AttributeTypeAndValue attributeOf(std::string_view type, const Bytes& value) {
    return decoded<asn1::AttributeTypeAndValue>(attribute(type, value));
}

/// The text of a common name's value.
std::u16string commonName(const Bytes& value) {
    return unitsOf(toText(attributeOf("CN", value))).substr(3);
}

TEST(NameText, WritesTheLastNameFirst) {
    EXPECT_EQ(textOf(name({{"C", "DE"}, {"O", "Example"}, {"CN", "Name"}})),
              "CN=Name, O=Example, C=DE");
}

TEST(NameText, OfOneNameHasNoSeparator) {
    EXPECT_EQ(textOf(name({{"CN", "Name"}})), "CN=Name");
}

TEST(NameText, JoinsTheAttributesOfOneNameLastFirst) {
    const Bytes two = set({attribute("CN", utf8String("Name")), attribute("OU", utf8String("U"))});
    const Bytes three = set({attribute("C", utf8String("a")), attribute("C", utf8String("b")),
                             attribute("C", utf8String("c"))});
    EXPECT_EQ(textOf(nameOf({two})), "OU=U + CN=Name");
    EXPECT_EQ(textOf(nameOf({two, three})), "C=c + C=b + C=a, OU=U + CN=Name");
    EXPECT_EQ(asciiOf(toText(decoded<asn1::RelativeDistinguishedName>(two))), "OU=U + CN=Name");
}

TEST(NameText, OfNoNamesIsEmpty) {
    const auto text = toText(decoded<asn1::RDNSequence>(name({})));
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(text.isNull());
}

TEST(NameText, OfNamesWithoutAttributesHasOnlySeparators) {
    EXPECT_EQ(textOf(nameOf({set({})})), "");
    EXPECT_EQ(textOf(nameOf({set({}), set({attribute("CN", utf8String("A"))})})), "CN=A, ");
}

TEST(NameText, OfNoValueIsAnError) {
    EXPECT_EQ(thrownBy([] { toText(asn1::RDNSequence()); }), unset("RDNSequence"));
}

TEST(NameText, OfManyNamesWritesThemAll) {
    Bytes rdns;
    std::string expected;
    for (int i = 0; i != 200; ++i) {
        rdns = rdns + set({attribute("OU", utf8String(std::to_string(i)))});
        expected = "OU=" + std::to_string(i) + (i == 0 ? "" : ", ") + expected;
    }
    EXPECT_EQ(textOf(element(0x30, rdns)), expected);
}

TEST(NameText, PutsABackslashBeforeTenCharacters) {
    EXPECT_EQ(textOf(name({{"CN", "Smith, John"}})), "CN=Smith\\, John");
    EXPECT_EQ(textOf(name({{"CN", "a\\b"}})), "CN=a\\\\b");
    const std::string special = ",+=\"\n<>#;\\";
    ASSERT_EQ(special.size(), 10u);
    std::string escaped;
    for (const char c : special)
        escaped += std::string("\\") + c;
    EXPECT_EQ(textOf(name({{"CN", special}})), "CN=" + escaped);
}

TEST(NameText, LeavesAllOtherCharactersAsTheyAre) {
    for (int c = 0; c != 0x80; ++c) {
        if (std::string_view(",+=\"\n<>#;\\").find(static_cast<char>(c)) != std::string::npos)
            continue;
        const Bytes value = element(0x0C, {static_cast<unsigned char>(c)});
        EXPECT_EQ(commonName(value), std::u16string(1, static_cast<char16_t>(c)));
    }
}

TEST(NameText, LeavesBlanksAtBothEndsAndZerosAsTheyAre) {
    EXPECT_EQ(textOf(name({{"CN", "  a  "}})), "CN=  a  ");
    EXPECT_EQ(commonName(element(0x0C, {0x41, 0x00, 0x42})), std::u16string(u"A\0B", 3));
}

TEST(NameText, EscapesANumberSignWhereverItStands) {
    EXPECT_EQ(textOf(name({{"CN", "#a#b#"}})), "CN=\\#a\\#b\\#");
}

TEST(NameText, EscapesOnlyTheCharactersThemselves) {
    // U+2C2B and U+5C5C, whose octets are those of escaped characters.
    EXPECT_EQ(commonName(bmpString(u"\u2C2B\u5C5C")), u"\u2C2B\u5C5C");
}

struct TypeName {
    const char* identifier;
    const char* name;
};

TEST(NameText, WritesEachKnownTypeByItsName) {
    const TypeName rows[] = {
        {"2.5.4.3", "CN"},
        {"2.5.4.4", "SN"},
        {"2.5.4.5", "serialNumber"},
        {"2.5.4.6", "C"},
        {"2.5.4.7", "L"},
        {"2.5.4.8", "ST"},
        {"2.5.4.9", "STREET"},
        {"2.5.4.10", "O"},
        {"2.5.4.11", "OU"},
        {"2.5.4.12", "title"},
        {"2.5.4.15", "businessCategory"},
        {"2.5.4.17", "postalCode"},
        {"2.5.4.41", "name"},
        {"2.5.4.42", "GN"},
        {"2.5.4.43", "initials"},
        {"2.5.4.44", "generationQualifier"},
        {"2.5.4.46", "dnQualifier"},
        {"2.5.4.65", "pseudonym"},
        {"2.5.4.97", "organizationIdentifier"},
        {"0.9.2342.19200300.100.1.1", "UID"},
        {"0.9.2342.19200300.100.1.25", "DC"},
        {"1.2.840.113549.1.9.1", "E"},
    };
    for (const TypeName& row : rows)
        EXPECT_EQ(asciiOf(toText(attributeOf(row.identifier, ia5String("x@y")))),
                  std::string(row.name) + "=x@y");
    // The one that is left has no string form.
    EXPECT_EQ(asn1::DN_ATTRIBUTE::definedTypes().size(), std::size(rows) + 1);
}

TEST(DefinedType, ConvertsItsValueByItself) {
    const auto& types = asn1::DN_ATTRIBUTE::definedTypes();
    const Bytes value = utf8String("so, it is");
    EXPECT_EQ(asciiOf(types.at(asn1::id_at_commonName).convert(rangeOf(value))), "so, it is");
}

TEST(NameText, TellsTypesApartThatAreAsLongAsThoseOfX520) {
    for (const char* const type : {"1.2.3.4", "2.5.5.3", "2.5.3.3", "1.5.4.3"})
        EXPECT_EQ(asciiOf(toText(attributeOf(type, utf8String("a")))),
                  std::string("OID.") + type + "=#0C0161");
}

TEST(NameText, WritesAnUnknownTypeByItsIdentifierAndItsValueInHexadecimal) {
    EXPECT_EQ(asciiOf(toText(attributeOf("1.2.3.4", utf8String("ab")))), "OID.1.2.3.4=#0C026162");
    EXPECT_EQ(asciiOf(toText(attributeOf("2.5.4.99", sequence({integer(171)})))),
              "OID.2.5.4.99=#30040202"
              "00AB");
    EXPECT_EQ(textOf(name({{"CN", "Name"}, {"2.999.1", ""}})), "OID.2.999.1=#0C00, CN=Name");
}

TEST(NameText, WritesAUniqueIdentifierInHexadecimal) {
    EXPECT_EQ(asciiOf(toText(attributeOf("2.5.4.45", bitString({0xAB, 0xC0}, 4)))),
              "x500UniqueIdentifier=#030304ABC0");
}

TEST(NameText, ConvertsEachStringType) {
    EXPECT_EQ(commonName(utf8String("\xC3\xA9\xE2\x82\xAC")), u"\u00E9\u20AC");
    EXPECT_EQ(commonName(printableString("Printable")), u"Printable");
    EXPECT_EQ(commonName(teletexString({0x41, 0xE9, 0xFF})), u"A\u00E9\u00FF");
    EXPECT_EQ(commonName(ia5String("ia5@x")), u"ia5@x");
    EXPECT_EQ(commonName(bmpString(u"\u00E9\u20AC")), u"\u00E9\u20AC");
    EXPECT_EQ(commonName(universalString(U"A\u20AC")), u"A\u20AC");
    for (const unsigned char identifier : fromHex("12 15 19 1A 1B"))
        EXPECT_EQ(commonName(element(identifier, fromText("text"))), u"text");
}

TEST(NameText, JoinsTheSegmentsOfAString) {
    EXPECT_EQ(commonName(fromHex("2C 06 0C 04 41 42 43 44")), u"ABCD");
    EXPECT_EQ(commonName(fromHex("2C 08 04 02 41 C3 04 02 A9 2C")), u"A\u00E9\\,");
    EXPECT_EQ(commonName(fromHex("33 0A 04 01 41 33 80 13 01 42 00 00")), u"AB");
    EXPECT_EQ(commonName(fromHex("3E 06 04 01 20 04 01 AC")), u"\u20AC");
    EXPECT_EQ(commonName(fromHex("2C 00")), u"");
}

TEST(NameText, OfAConstructedStringThatIsNotInSegmentsIsAnError) {
    EXPECT_EQ(thrownBy([] { commonName(fromHex("2C 04 41 42 43 44")); }),
              wrongTag("04 0C", "41", 2));
    EXPECT_EQ(thrownBy([] { commonName(fromHex("2C 06 04 01 41 0C 02 42")); }), mismatch(5));
    EXPECT_EQ(thrownBy([] { commonName(fromHex("3E 03 04 01 41")); }), mismatch(0));
}

TEST(NameText, KeepsTheLowSixteenBitsOfLargeCharacters) {
    EXPECT_EQ(commonName(utf8String("\xF0\x9F\x98\x80")), u"\xF600");
    EXPECT_EQ(commonName(universalString(U"\U0001F600")), u"\xF600");
}

TEST(NameText, KeepsSurrogatesAsTheyAre) {
    EXPECT_EQ(commonName(bmpString(u"\U0001F600")), u"\U0001F600");
    EXPECT_EQ(commonName(utf8String("\xED\xA0\xBD\xED\xB8\x80")), u"\U0001F600");
}

TEST(NameText, OfLongValuesIsWhole) {
    const std::string ascii(5000, 'x');
    EXPECT_EQ(textOf(name({{"CN", ascii}})), "CN=" + ascii);
    std::string commas(300, ',');
    EXPECT_EQ(textOf(name({{"CN", commas}})).size(), 3 + 2 * commas.size());
    std::string accents;
    for (int i = 0; i != 300; ++i)
        accents += "\xC3\xA9";
    EXPECT_EQ(commonName(utf8String(accents)), std::u16string(300, u'\u00E9'));
}

TEST(NameText, OfEmptyValuesHasOnlyTheType) {
    EXPECT_EQ(textOf(name({{"CN", ""}})), "CN=");
    EXPECT_EQ(commonName(bmpString(u"")), u"");
    EXPECT_EQ(commonName(universalString(U"")), u"");
}

TEST(NameText, OfMalformedUtf8IsAnError) {
    const Thrown expected = event<buffer::BufferError_InvalidEncodingUnit>(
        {{"CODEC", "Utf8Decoder"}, {"CAUSE", "BadUft8Encoding"}});
    EXPECT_EQ(thrownBy([] { textOf(name({{"CN", "\xC3\x41"}})); }), expected);
    EXPECT_EQ(thrownBy([] { textOf(name({{"C", "DE"}, {"CN", "abc\xC3"}})); }), expected);
    EXPECT_EQ(thrownBy([] {
                  textOf(name({{"CN", "\xFF"}}));
              }),
              event<buffer::BufferError_InvalidEncodingUnit>());
}

TEST(NameText, OfAKnownTypeWithoutACharacterStringIsAnError) {
    struct Row {
        Bytes value;
        const char* foundTag;
    };
    for (const Row& row : {Row{integer(5), "02"}, Row{null(), "05"}, Row{octetString({0x41}), "04"},
                           Row{sequence({utf8String("A")}), "30"}, Row{bitString({0x41}), "03"},
                           Row{utcTime("260101000000Z"), "17"}, Row{element(0x8C, {0x41}), "8C"}})
        EXPECT_EQ(thrownBy([&] { toText(attributeOf("CN", row.value)); }),
                  wrongTag("0C 12 13 14 15 16 19 1A 1B 1C 1E", row.foundTag, 0));
}

TEST(NameText, OfWideStringsThatAreNoWholeCharactersIsAnError) {
    EXPECT_EQ(thrownBy([] {
                  toText(attributeOf("CN", element(0x1E, {0, 0x41, 0})));
              }),
              mismatch(0));
    EXPECT_EQ(thrownBy([] {
                  toText(attributeOf("CN", element(0x1C, {0, 0, 0x41})));
              }),
              mismatch(0));
}

TEST(AttributeText, OfAnAttributeWithoutValueIsAnError) {
    asn1::AttributeTypeAndValue attribute;
    EXPECT_EQ(thrownBy([&] { toText(attribute); }), missingField("type", "OBJECT IDENTIFIER"));
    attribute.attributeType = asn1::id_at_commonName;
    EXPECT_EQ(thrownBy([&] { toText(attribute); }), missingField("value", "ANY"));
    attribute.attributeType = asn1::ObjectIdentifier("1.2.3");
    EXPECT_EQ(thrownBy([&] { toText(attribute); }), missingField("value", "ANY"));
}

asn1::TmpBuffer<wchar_t> saySo(Range) {
    return {L"so, it is", 9};
}

TEST(AttributeText, FollowsATableOfTheCallers) {
    asn1::DN_ATTRIBUTE::DefinedTypes types;
    types[asn1::ObjectIdentifier("1.2.1")] = {{L"first", L"second"}, false, &saySo};
    types[asn1::ObjectIdentifier("1.2.2")] = {{}, false, &saySo};
    types[asn1::ObjectIdentifier("1.2.3")] = {{L"hex"}, true, &saySo};
    types[asn1::ObjectIdentifier("1.2.4")] = {{}, true, nullptr};
    types[asn1::ObjectIdentifier("1.2.5")] = {{L"bare"}, false, nullptr};
    const auto text = [&](const char* type) {
        return asciiOf(toText(attributeOf(type, integer(5)), types));
    };
    EXPECT_EQ(text("1.2.1"), "first=so\\, it is");
    EXPECT_EQ(text("1.2.2"), "OID.1.2.2=so\\, it is");
    EXPECT_EQ(text("1.2.3"), "hex=#020105");
    EXPECT_EQ(text("1.2.4"), "OID.1.2.4=#020105");
    EXPECT_EQ(text("1.2.5"), "bare=#020105");
    EXPECT_EQ(text("1.2.6"), "OID.1.2.6=#020105");
}

TEST(DefinedType, WithoutNamesHasNoNameToWrite) {
    EXPECT_EQ(thrownBy([] { asn1::DN_ATTRIBUTE().writtenName(); }),
              event<asn1::QuorError_Asn1_NoDefaultValue>({{"CAUSE", "MissingStringType"}}));
}

TEST(DefinedType, WritesItsFirstName) {
    const auto& types = asn1::DN_ATTRIBUTE::definedTypes();
    EXPECT_EQ(asciiOf(types.at(asn1::id_at_commonName).writtenName()), "CN");
    EXPECT_TRUE(types.at(asn1::ObjectIdentifier("2.5.4.45")).hasNoStringForm);
}

TEST(DirectoryStringText, ConvertsTheChosenAlternative) {
    const auto text = [](const Bytes& encoding) {
        return unitsOf(toText(decoded<asn1::DirectoryString>(encoding)));
    };
    EXPECT_EQ(text(teletexString({0x41, 0xE9})), u"A\u00E9");
    EXPECT_EQ(text(printableString("Name")), u"Name");
    EXPECT_EQ(text(universalString(U"\u20AC")), u"\u20AC");
    EXPECT_EQ(text(utf8String("\xE2\x82\xAC, x")), u"\u20AC, x");
    EXPECT_EQ(text(bmpString(u"\u20AC")), u"\u20AC");
}

TEST(DirectoryStringText, ReencodesAsItCame) {
    for (const Bytes& encoding :
         {teletexString({0xE9}), printableString("Name"), universalString(U"\u20AC"),
          utf8String("\xC3"), bmpString(u"\u20AC")})
        EXPECT_EQ(encoded(decoded<asn1::DirectoryString>(encoding)), encoding);
}

TEST(DirectoryStringText, NeedsAChoice) {
    EXPECT_EQ(thrownBy([] { toText(asn1::DirectoryString()); }), unset("DirectoryString"));
}

TEST(DirectoryStringText, NeedsAValueOfTheChosenAlternative) {
    const char* const types[] = {"TeletexString", "PrintableString", "UniversalString",
                                 "UTF8String", "BMPString"};
    asn1::DirectoryString string;
    for (int i = 0; i != 5; ++i) {
        string.choose(i);
        EXPECT_EQ(thrownBy([&] { toText(string); }), unset(types[i]));
    }
}

TEST(DirectoryStringText, HasFiveAlternatives) {
    asn1::DirectoryString string;
    for (const int choice : {5, 6, 1000, -2}) {
        string.choose(choice);
        EXPECT_EQ(thrownBy([&] { toText(string); }),
                  event<asn1::QuorError_Asn1_InternalError>(
                      {{"CAUSE", "InvalidDirectoryStringComponent"}}));
    }
}

TEST(DirectoryStringDecoding, RefusesOtherTypes) {
    asn1::DirectoryString string;
    EXPECT_EQ(thrownBy([&] { decode(ia5String("A"), string); }),
              wrongTag("14 13 1C 0C 1E", "16", 0));
    EXPECT_EQ(thrownBy([&] { decode(element(0x1E, {0x41}), string); }), mismatch(0));
    EXPECT_EQ(thrownBy([&] { decode(element(0x1C, {0, 0x41}), string); }), mismatch(0));
}

} // namespace
} // namespace asn1_test
