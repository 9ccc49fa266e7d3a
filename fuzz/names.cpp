// Names, object identifiers and times as text: the first byte chooses which.
#include "nametext.h"

#include "bufcodecs.h"
#include "buffererror.h"
#include "certbuilder.h"
#include "certificate.h"
#include "der.h"
#include "fuzztarget.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

namespace {

using asn1::QuorError_Asn1_Decode;
using asn1::QuorError_Asn1_SettingValue;
using buffer::BufferError_InvalidEncodingUnit;

std::wstring wide(const buffer::GenericBuffer<wchar_t>& text) {
    return {text.begin(), text.end()};
}

std::string_view characters(Input input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

/// The text of a name or of a part of one, or nothing if it has none.
template <class Value>
std::optional<std::wstring> textOf(const Value& value) {
    std::optional<std::wstring> text;
    returns<QuorError_Asn1_Decode>([&] {
        returns<BufferError_InvalidEncodingUnit>([&] { text = wide(asn1::toText(value)); });
    });
    return text;
}

std::wstring escaped(std::wstring_view text) {
    std::wstring result;
    for (const wchar_t character : text) {
        if (std::wstring_view(L",+=\"\n<>#;\\").find(character) != std::wstring_view::npos)
            result += L'\\';
        result += character;
    }
    return result;
}

/// Attributes that have a text of their own are written by it.
void checkAttribute(const asn1::AttributeTypeAndValue& attribute, const std::wstring& text) {
    const auto& types = asn1::DN_ATTRIBUTE::definedTypes();
    const auto defined = types.find(attribute.attributeType);
    if (defined == types.end()) {
        const std::wstring type = L"OID." + wide(attribute.attributeType.text());
        require(text == type + L"=#" +
                            wide(buffer::Buffer<wchar_t>(
                                buffer::hexEncode(attribute.value.encoding()))),
                "an unknown type is not written in hexadecimal");
        return;
    }
    asn1::DirectoryString string;
    if (defined->second.hasNoStringForm || !returns<QuorError_Asn1_Decode>([&] {
            asn1::aux::decodeBer(attribute.value.encoding(), string, true);
        }))
        return;
    require(text ==
                wide(defined->second.writtenName()) + L'=' + escaped(wide(asn1::toText(string))),
            "a string is written otherwise");
}

/// The list's items are written last one first, and it has a text if all of them have one.
template <class List>
void checkList(const List& list, std::wstring_view separator, const char* property) {
    const std::optional<std::wstring> text = textOf(list);
    std::optional<std::wstring> joined = L"";
    bool isFirst = true;
    for (const auto& item : list) {
        const std::optional<std::wstring> itemText = textOf(item);
        if (!itemText || !joined)
            joined.reset();
        else if (isFirst)
            joined = itemText;
        else
            joined->insert(0, separator).insert(0, *itemText);
        isFirst = false;
    }
    require(text == joined, property);
}

void checkFinding(const asn1::RDNSequence& name,
                  const std::vector<asn1::AttributeTypeAndValue>& attributes) {
    constexpr std::size_t enough = 8;
    for (std::size_t i = 0; i != std::min(attributes.size(), enough); ++i) {
        const asn1::ObjectIdentifier& type = attributes[i].attributeType;
        const auto occurrence =
            1 + std::count_if(attributes.begin(),
                              attributes.begin() + static_cast<std::ptrdiff_t>(i),
                              [&](const auto& other) { return other.attributeType == type; });
        const auto found = name.find(type, static_cast<unsigned>(occurrence));
        require(found && found->cmp(attributes[i], asn1::Amatch::exact) == 0,
                "another attribute is found");
    }
}

void checkName(Input input) {
    asn1::RDNSequence name;
    if (!returns<QuorError_Asn1_Decode>([&] { asn1::der::decode(input, name); }))
        return;
    checkList(name, L", ", "a name is not what its parts are");
    std::vector<asn1::AttributeTypeAndValue> attributes;
    for (const asn1::RelativeDistinguishedName& rdn : name) {
        checkList(rdn, L" + ", "a part of a name is not what its attributes are");
        for (const asn1::AttributeTypeAndValue& attribute : rdn) {
            attributes.push_back(attribute);
            if (const std::optional<std::wstring> text = textOf(attribute))
                checkAttribute(attribute, *text);
        }
    }
    checkFinding(name, attributes);
}

void checkDirectoryString(Input input) {
    asn1::DirectoryString string;
    if (returns<QuorError_Asn1_Decode>([&] { asn1::der::decode(input, string); }))
        returns<BufferError_InvalidEncodingUnit>([&] { asn1::toText(string); });
}

/// Whether strict decoding accepts an element with these contents.
template <class Value>
bool isAccepted(unsigned char identifier, Input contents, Value& value) {
    const auto encoding = testsupport::element(identifier, {contents.begin(), contents.end()});
    return returns<QuorError_Asn1_Decode>([&] {
        asn1::der::decode({encoding.data(), encoding.size()}, value);
    });
}

/// The number that 7-bit digits stand for, worked out digit by decimal digit.
std::string decimal(Input digits) {
    std::string number = "0"; // its lowest digit first
    for (const unsigned char digit : digits) {
        unsigned carry = digit & 0x7Fu;
        for (char& place : number) {
            carry += static_cast<unsigned>(place - '0') * 128;
            place = static_cast<char>('0' + carry % 10);
            carry /= 10;
        }
        for (; carry != 0; carry /= 10)
            number += static_cast<char>('0' + carry % 10);
    }
    std::ranges::reverse(number);
    return number;
}

/// The arcs behind the first two, which share a number.
std::string laterArcs(Input contents) {
    std::string text;
    const unsigned char* arcBegin = contents.begin();
    for (const unsigned char* octet = arcBegin; octet != contents.end(); ++octet)
        if ((*octet & 0x80) == 0) {
            if (arcBegin != contents.begin())
                text += '.' + decimal({arcBegin, octet + 1});
            arcBegin = octet + 1;
        }
    return text;
}

void checkIdentifierContents(Input contents) {
    constexpr std::size_t longest = 64;
    if (contents.size() > longest)
        contents = {contents.data(), longest};
    asn1::ObjectIdentifier identifier;
    if (!isAccepted(0x06, contents, identifier))
        return;
    const std::wstring wideText = wide(identifier.text());
    const std::string text(wideText.begin(), wideText.end());
    require(text.ends_with(laterArcs(contents)), "an arc has another number");
    constexpr std::size_t digitsFitting64Bits = 18;
    const bool isParsed = returns<QuorError_Asn1_SettingValue>([&] {
        require(asn1::ObjectIdentifier(text) == identifier, "its text means something else");
    });
    require(isParsed || text.size() > digitsFitting64Bits, "its text is refused");
}

void checkIdentifierText(Input input) {
    const std::string_view text = characters(input);
    returns<QuorError_Asn1_SettingValue>([&] {
        const asn1::ObjectIdentifier identifier(text);
        require(wide(identifier.text()) == std::wstring(text.begin(), text.end()),
                "it has another text");
        asn1::ObjectIdentifier decoded;
        require(isAccepted(0x06, identifier.contents(), decoded), "it encodes to no identifier");
        require(decoded == identifier, "it encodes to another identifier");
    });
}

template <class TimeType>
void checkTime(unsigned char identifier, Input input) {
    const std::string_view text = characters(input);
    TimeType decoded;
    const bool isDecoded = isAccepted(identifier, input, decoded);
    require(isDecoded == returns<QuorError_Asn1_SettingValue>([&] { TimeType{text}; }),
            "a program and an encoding may say different times");
    if (!isDecoded)
        return;
    require(decoded.text() == text, "it has another text");
    const std::wstring iso = wide(asn1::Time(decoded).text());
    std::wstring digits;
    std::ranges::copy_if(iso, std::back_inserter(digits), [](wchar_t character) {
        return std::wstring_view(L"-:T").find(character) == std::wstring_view::npos;
    });
    require(digits.ends_with(std::wstring(text.begin(), text.end())), "a digit has changed");
    require(iso[4] == L'-' && iso[7] == L'-' && iso[10] == L'T' && iso[13] == L':' &&
                iso[16] == L':' && iso.back() == L'Z',
            "it is not written as ISO 8601 has it");
}

} // namespace

void names(Input input) {
    switch (takeByte(input) % 6) {
    case 0:
        return checkName(input);
    case 1:
        return checkIdentifierContents(input);
    case 2:
        return checkIdentifierText(input);
    case 3:
        return checkTime<asn1::UTCTime>(0x17, input);
    case 4:
        return checkTime<asn1::GeneralizedTime>(0x18, input);
    default:
        return checkDirectoryString(input);
    }
}

} // namespace fuzz
