// Distinguished names as text, in the manner of RFC 4514.
#include "nametext.h"

#include "bufcodecs.h"
#include "der.h"
#include "element.h"
#include "oids.h"
#include "unset.h"

#include <algorithm>
#include <string_view>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\nametext.cpp";

using Range = BufferRange<unsigned char>;
using Text = TmpBuffer<wchar_t>;

void append(Text& text, std::wstring_view more) {
    text.append(more.data(), more.size());
}

bool isCharacterSet(unsigned char identifier) {
    switch (static_cast<CharacterSet>(identifier)) {
    case CharacterSet::utf8:
    case CharacterSet::numeric:
    case CharacterSet::printable:
    case CharacterSet::teletex:
    case CharacterSet::videotex:
    case CharacterSet::ia5:
    case CharacterSet::graphic:
    case CharacterSet::visible:
    case CharacterSet::general:
    case CharacterSet::universal:
    case CharacterSet::bmp:
        return true;
    }
    return false;
}

/// How many octets a character takes, at least.
std::size_t octetsEach(CharacterSet set) {
    if (set == CharacterSet::universal)
        return 4;
    return set == CharacterSet::bmp ? 2 : 1;
}

[[noreturn]] void throwNoCharacterString(unsigned char identifier, int line = __builtin_LINE()) {
    const auto wrongTag = korv::makeEvent<QuorError_Asn1_InvalidTag>(
        sourceFile,
        {{L"EXPECTED_TAG", L"0C 12 13 14 15 16 19 1A 1B 1C 1E"},
         {L"FOUND_TAG", buffer::hexEncode({&identifier, 1})}},
        line);
    throw korv::makeEvent<QuorError_Asn1_Decode>(
        sourceFile, wrongTag, {{L"CAUSE", L"ValueDoesNotMatch"}, {L"POSITION", 0u}}, line);
}

/// The text of any character string, whichever one the type of attribute asks for: certificates
/// of all ages are to be shown, not judged.
Text characterStringText(Range encoding) {
    const Element element = elementAt(encoding.begin(), encoding.end());
    const unsigned char identifier = tag::masked(element.identifier());
    const auto set = static_cast<CharacterSet>(identifier);
    if (!isCharacterSet(identifier))
        throwNoCharacterString(element.identifier());
    const Range contents = element.contentsRange();
    if (contents.size() % octetsEach(set) != 0)
        throw korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, {{L"CAUSE", L"ValueDoesNotMatch"}, {L"POSITION", 0u}});
    return characterText(set, contents);
}

constexpr bool isSpecial(wchar_t character) noexcept {
    switch (character) {
    case L',':
    case L'+':
    case L'=':
    case L'"':
    case L'\n':
    case L'<':
    case L'>':
    case L'#':
    case L';':
    case L'\\':
        return true;
    default:
        return false;
    }
}

void appendEscaped(Text& text, const Text& value) {
    const auto specials = static_cast<std::size_t>(std::ranges::count_if(value, isSpecial));
    const std::size_t oldSize = text.size();
    text.resize(oldSize + value.size() + specials);
    wchar_t* out = text.data() + oldSize;
    for (const wchar_t character : value) {
        if (isSpecial(character))
            *out++ = L'\\';
        *out++ = character;
    }
}

ObjectIdentifier objectIdentifier(Range contents) {
    ObjectIdentifier identifier;
    identifier.assignContents(Buffer<unsigned char>(contents.begin(), contents.size()));
    return identifier;
}

// What follows walks over the encodings of lists and attributes, which were checked when they
// came into their values: objects for every part would cost more than the text.

/// \param encoding of the AttributeTypeAndValue
void appendAttribute(Text& text, Range encoding, const DN_ATTRIBUTE::DefinedTypes& definedTypes) {
    const Range members = elementAt(encoding.begin(), encoding.end()).contentsRange();
    const Element attributeType = elementAt(members.begin(), members.end());
    const Range value{attributeType.end, members.end()};

    const auto entry = definedTypes.find(attributeType.contentsRange());
    const DN_ATTRIBUTE* defined = entry == definedTypes.end() ? nullptr : &entry->second;
    if (!defined || defined->names.empty()) {
        append(text, L"OID.");
        text.append(objectIdentifier(attributeType.contentsRange()).text());
    } else
        text.append(defined->writtenName());
    text.append(L'=');
    if (!defined || defined->hasNoStringForm || !defined->convert) {
        text.append(L'#');
        text.append(buffer::hexEncode(value));
    } else
        appendEscaped(text, defined->convert(value));
}

/// Calls `appendItem` with the encodings of a list's items, the last one first. Lists are read
/// from the front only, so the items are collected first, except for the usual list of one.
template <class AppendItem>
void appendReversed(Text& text, Range list, std::wstring_view separator, AppendItem appendItem) {
    if (list.empty())
        return;
    const Element first = elementAt(list.begin(), list.end());
    if (first.end == list.end()) {
        appendItem(first.range());
        return;
    }
    std::vector<Range> items;
    constexpr std::size_t usually = 8;
    items.reserve(usually);
    for (const unsigned char* p = list.begin(); p != list.end(); p = items.back().end())
        items.push_back(elementAt(p, list.end()).range());
    for (auto item = items.rbegin(); item != items.rend(); ++item) {
        if (item != items.rbegin())
            append(text, separator);
        appendItem(*item);
    }
}

/// \param names contents of the RelativeDistinguishedName
void appendNames(Text& text, Range names) {
    appendReversed(text, names, L" + ", [&text](Range attribute) {
        appendAttribute(text, attribute, DN_ATTRIBUTE::definedTypes());
    });
}

DN_ATTRIBUTE named(std::initializer_list<const wchar_t*> names) {
    return {{names.begin(), names.end()}, false, &characterStringText};
}

DN_ATTRIBUTE withoutStringForm(std::initializer_list<const wchar_t*> names) {
    return {{names.begin(), names.end()}, true, nullptr};
}

} // namespace

const Buffer<wchar_t>& DN_ATTRIBUTE::writtenName() const {
    if (names.empty())
        throw korv::makeEvent<QuorError_Asn1_NoDefaultValue>(sourceFile,
                                                             {{L"CAUSE", L"MissingStringType"}});
    return names.front();
}

const DN_ATTRIBUTE::DefinedTypes& DN_ATTRIBUTE::definedTypes() {
    static const DefinedTypes types{
        {id_at_commonName, named({L"CN", L"commonName"})},
        {ObjectIdentifier("2.5.4.4"), named({L"SN", L"surname"})},
        {ObjectIdentifier("2.5.4.5"), named({L"serialNumber"})},
        {ObjectIdentifier("2.5.4.6"), named({L"C", L"countryName"})},
        {ObjectIdentifier("2.5.4.7"), named({L"L", L"localityName"})},
        {ObjectIdentifier("2.5.4.8"), named({L"ST", L"stateOrProvinceName"})},
        {ObjectIdentifier("2.5.4.9"), named({L"STREET", L"streetAddress"})},
        {ObjectIdentifier("2.5.4.10"), named({L"O", L"organizationName"})},
        {ObjectIdentifier("2.5.4.11"), named({L"OU", L"organizationalUnitName"})},
        {ObjectIdentifier("2.5.4.12"), named({L"title"})},
        {ObjectIdentifier("2.5.4.15"), named({L"businessCategory"})},
        {ObjectIdentifier("2.5.4.17"), named({L"postalCode"})},
        {ObjectIdentifier("2.5.4.41"), named({L"name"})},
        {ObjectIdentifier("2.5.4.42"), named({L"GN", L"givenName"})},
        {ObjectIdentifier("2.5.4.43"), named({L"initials"})},
        {ObjectIdentifier("2.5.4.44"), named({L"generationQualifier"})},
        {ObjectIdentifier("2.5.4.45"), withoutStringForm({L"x500UniqueIdentifier"})},
        {ObjectIdentifier("2.5.4.46"), named({L"dnQualifier"})},
        {ObjectIdentifier("2.5.4.65"), named({L"pseudonym"})},
        {ObjectIdentifier("2.5.4.97"), named({L"organizationIdentifier"})},
        {ObjectIdentifier("0.9.2342.19200300.100.1.1"), named({L"UID", L"userId"})},
        {ObjectIdentifier("0.9.2342.19200300.100.1.25"), named({L"DC", L"domainComponent"})},
        {ObjectIdentifier("1.2.840.113549.1.9.1"), named({L"E", L"emailAddress"})},
    };
    return types;
}

Text toText(const DirectoryString& string) {
    switch (string.chosen()) {
    case 0:
        return string.teletexString.text();
    case 1:
        return string.printableString.text();
    case 2:
        return string.universalString.text();
    case 3:
        return string.utf8String.text();
    case 4:
        return string.bmpString.text();
    case Choice::nothing:
        throw unsetValue(sourceFile, DirectoryString::asn1Type);
    default:
        throw korv::makeEvent<QuorError_Asn1_InternalError>(
            sourceFile, {{L"CAUSE", L"InvalidDirectoryStringComponent"}});
    }
}

Text toText(const AttributeTypeAndValue& attribute,
            const DN_ATTRIBUTE::DefinedTypes& definedTypes) {
    Text text(std::size_t{0});
    appendAttribute(text, aux::encodeDer(attribute, false), definedTypes);
    return text;
}

Text toText(const RelativeDistinguishedName& names) {
    Text text(std::size_t{0});
    appendNames(text, names.contents());
    return text;
}

Text toText(const RDNSequence& names) {
    if (!names.hasValue())
        throw unsetValue(sourceFile, RDNSequence::asn1Type);
    Text text(std::size_t{0});
    appendReversed(text, names.contents(), L", ", [&text](Range rdn) {
        appendNames(text, elementAt(rdn.begin(), rdn.end()).contentsRange());
    });
    return text;
}

} // namespace asn1
