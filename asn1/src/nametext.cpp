// Distinguished names as text, in the manner of RFC 4514.
#include "nametext.h"

#include "bufcodecs.h"
#include "der.h"
#include "element.h"
#include "oids.h"
#include "unset.h"

#include <string_view>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\nametext.cpp";

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

/// The text of any character string, whichever one the type of attribute asks for: certificates
/// of all ages are to be shown, not judged.
Text characterStringText(const OpenType& value) {
    const BufferRange<unsigned char> encoding = value.encoding();
    const Element element = elementAt(encoding.begin(), encoding.end());
    const unsigned char identifier = tag::masked(element.identifier());
    if (!isCharacterSet(identifier))
        throw korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, {{L"CAUSE", L"ValueDoesNotMatch"}, {L"POSITION", 0u}});
    return characterText(static_cast<CharacterSet>(identifier), element.contentsRange());
}

void appendEscaped(Text& text, const Text& value) {
    static constexpr std::wstring_view special = L",+=\"\n<>#;\\";
    for (const wchar_t character : value) {
        if (special.find(character) != std::wstring_view::npos)
            text.append(L'\\');
        text.append(character);
    }
}

void appendAttribute(Text& text, const AttributeTypeAndValue& attribute,
                     const DN_ATTRIBUTE::DefinedTypes& definedTypes) {
    const auto entry = definedTypes.find(attribute.attributeType);
    const DN_ATTRIBUTE* defined = entry == definedTypes.end() ? nullptr : &entry->second;
    if (!defined || defined->names.empty()) {
        append(text, L"OID.");
        text.append(attribute.attributeType.text());
    } else
        text.append(defined->writtenName());
    append(text, L"=");
    if (!defined || defined->hasNoStringForm) {
        append(text, L"#");
        text.append(buffer::hexEncode(aux::encodeDer(attribute.value, false)));
    } else
        appendEscaped(text, defined->convert(attribute.value));
}

/// Appends the items of a list, the last one first. Lists are read from the front only, so their
/// items' positions are collected first.
template <class List, class AppendItem>
void appendReversed(Text& text, const List& list, std::wstring_view separator,
                    AppendItem appendItem) {
    std::vector<typename List::Iterator> positions;
    for (auto position = list.begin(); position != list.end(); ++position)
        positions.push_back(position);
    for (auto position = positions.rbegin(); position != positions.rend(); ++position) {
        if (position != positions.rbegin())
            append(text, separator);
        appendItem(**position);
    }
}

void appendNames(Text& text, const RelativeDistinguishedName& names) {
    appendReversed(text, names, L" + ", [&](const AttributeTypeAndValue& attribute) {
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
    appendAttribute(text, attribute, definedTypes);
    return text;
}

Text toText(const RelativeDistinguishedName& names) {
    Text text(std::size_t{0});
    appendNames(text, names);
    return text;
}

Text toText(const RDNSequence& names) {
    if (!names.hasValue())
        throw unsetValue(sourceFile, RDNSequence::asn1Type);
    Text text(std::size_t{0});
    appendReversed(text, names, L", ",
                   [&](const RelativeDistinguishedName& rdn) { appendNames(text, rdn); });
    return text;
}

} // namespace asn1
