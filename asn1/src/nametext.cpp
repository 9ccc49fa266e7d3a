// Distinguished names as text, in the manner of RFC 4514.
#include "nametext.h"

#include "bufcodecs.h"
#include "der.h"
#include "element.h"
#include "oids.h"
#include "segments.h"
#include "unset.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory_resource>
#include <string_view>
#include <utility>

namespace asn1 {

namespace {

using namespace std::string_view_literals;

constexpr wchar_t sourceFile[] = L"asn1\\src\\nametext.cpp";

using Range = BufferRange<unsigned char>;
using Text = TmpBuffer<wchar_t>;

/// Text that grows: room is asked for before it is filled, so that what writes many characters
/// asks once.
class Writer {
public:
    /// \param expected about how many characters there will be
    explicit Writer(std::size_t expected) : text_(expected) {}

    /// Room for `count` characters behind those already written.
    wchar_t* room(std::size_t count) {
        if (text_.size() - size_ < count)
            text_.resize(size_ + count);
        return text_.data() + size_;
    }
    /// Keeps what was written into the room before `end`.
    void writtenUpTo(const wchar_t* end) noexcept {
        size_ = static_cast<std::size_t>(end - text_.data());
    }

    void append(BufferRange<wchar_t> more) {
        writtenUpTo(std::copy(more.begin(), more.end(), room(more.size())));
    }
    void append(std::wstring_view more) { append(BufferRange<wchar_t>{more.data(), more.size()}); }
    void append(wchar_t character) {
        *room(1) = character;
        ++size_;
    }

    Text take() && {
        text_.resize(size_);
        return std::move(text_);
    }

private:
    Text text_;
    std::size_t size_ = 0;
};

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

struct CharacterContents {
    CharacterSet set;
    Range contents;
};

/// Takes any character string, whichever one the type of attribute asks for: certificates of all
/// ages are to be shown, not judged.
/// \param joined receives the contents of a string in segments
CharacterContents characterContents(Range encoding, TmpBuffer<unsigned char>& joined) {
    const Element element = elementAt(encoding.begin(), encoding.end());
    const unsigned char identifier = tag::masked(element.identifier());
    const auto set = static_cast<CharacterSet>(identifier);
    if (!isCharacterSet(identifier))
        throwNoCharacterString(element.identifier());
    Range contents = element.contentsRange();
    if (identifier != element.identifier()) {
        joinSegments(TypeClass::characterString, identifier, element, encoding.begin(), joined);
        contents = joined;
    }
    if (contents.size() % octetsEach(set) != 0)
        throw korv::makeEvent<QuorError_Asn1_Decode>(
            sourceFile, {{L"CAUSE", L"ValueDoesNotMatch"}, {L"POSITION", 0u}});
    return {set, contents};
}

Text characterStringText(Range encoding) {
    TmpBuffer<unsigned char> joined;
    const CharacterContents string = characterContents(encoding, joined);
    return characterText(string.set, string.contents);
}

constexpr auto isSpecial = [] {
    std::array<bool, 256> table{};
    for (const char character : std::string_view(",+=\"\n<>#;\\"))
        table[static_cast<unsigned char>(character)] = true;
    return table;
}();

void appendEscaped(Writer& text, const Text& value) {
    wchar_t* out = text.room(2 * value.size());
    for (const wchar_t character : value) {
        const auto index = static_cast<std::size_t>(character);
        if (index < isSpecial.size() && isSpecial[index])
            *out++ = L'\\';
        *out++ = character;
    }
    text.writtenUpTo(out);
}

/// Writes contents each octet of which is a character, as those of nine in ten values are. Leaves
/// the text as it was if an octet is none.
bool appendOctetText(Writer& text, const CharacterContents& string) {
    if (octetsEach(string.set) != 1)
        return false;
    wchar_t* out = text.room(2 * string.contents.size());
    unsigned bits = 0;
    for (const unsigned char octet : string.contents) {
        bits |= octet;
        if (isSpecial[octet])
            *out++ = L'\\';
        *out++ = static_cast<wchar_t>(octet);
    }
    if (string.set == CharacterSet::utf8 && bits > 0x7F)
        return false;
    text.writtenUpTo(out);
    return true;
}

void appendCharacterString(Writer& text, Range encoding) {
    TmpBuffer<unsigned char> joined;
    const CharacterContents string = characterContents(encoding, joined);
    if (!appendOctetText(text, string))
        appendEscaped(text, characterText(string.set, string.contents));
}

ObjectIdentifier objectIdentifier(Range contents) {
    ObjectIdentifier identifier;
    identifier.assignContents(Buffer<unsigned char>(contents.begin(), contents.size()));
    return identifier;
}

// What follows walks over the encodings of lists and attributes, which were checked when they
// came into their values: objects for every part would cost more than the text.

using DefinedTypes = DN_ATTRIBUTE::DefinedTypes;

/// A table of attribute types that is asked for every attribute of a name. Nearly all are of
/// X.520, 2.5.4.n, and found by their n.
class KnownTypes {
public:
    explicit KnownTypes(const DefinedTypes& types) : types_(types) {
        for (const auto& [type, attribute] : types)
            if (isX520(type.contents()))
                x520_[type.contents()[2]] = &attribute;
    }

    /// Null if the table does not have the type.
    const DN_ATTRIBUTE* find(Range type) const {
        if (isX520(type))
            return x520_[type[2]];
        const auto entry = types_.find(type);
        return entry == types_.end() ? nullptr : &entry->second;
    }

private:
    static bool isX520(Range type) noexcept {
        return type.size() == 3 && type[0] == 0x55 && type[1] == 0x04;
    }

    const DefinedTypes& types_;
    std::array<const DN_ATTRIBUTE*, 256> x520_{}; ///< by the last octet
};

const KnownTypes& knownTypes() {
    static const KnownTypes known(DN_ATTRIBUTE::definedTypes());
    return known;
}

/// \param encoding of the AttributeTypeAndValue
void appendAttribute(Writer& text, Range encoding, const KnownTypes& types) {
    const Range members = elementAt(encoding.begin(), encoding.end()).contentsRange();
    const Element attributeType = elementAt(members.begin(), members.end());
    const Range value{attributeType.end, members.end()};

    const DN_ATTRIBUTE* defined = types.find(attributeType.contentsRange());
    if (!defined || defined->names.empty()) {
        text.append(L"OID."sv);
        text.append(objectIdentifier(attributeType.contentsRange()).text());
    } else
        text.append(defined->writtenName());
    text.append(L'=');
    if (!defined || defined->hasNoStringForm || !defined->convert) {
        text.append(L'#');
        text.append(buffer::hexEncode(value));
    } else if (defined->convert == &characterStringText)
        appendCharacterString(text, value);
    else
        appendEscaped(text, defined->convert(value));
}

/// Calls `appendItem` with the encodings of a list's items, the last one first. Lists are read
/// from the front only, so the items are collected first, except for the usual list of one.
template <class AppendItem>
void appendReversed(Writer& text, Range list, std::wstring_view separator, AppendItem appendItem) {
    if (list.empty())
        return;
    const Element first = elementAt(list.begin(), list.end());
    if (first.end == list.end()) {
        appendItem(first.range());
        return;
    }
    // Names of more parts than these take memory from the heap.
    constexpr std::size_t usually = 16;
    alignas(Range) std::array<std::byte, usually * sizeof(Range)> room;
    std::pmr::monotonic_buffer_resource memory(room.data(), room.size());
    std::pmr::vector<Range> items(&memory);
    items.reserve(usually);
    for (const unsigned char* p = list.begin(); p != list.end(); p = items.back().end())
        items.push_back(elementAt(p, list.end()).range());
    for (auto item = items.rbegin(); item != items.rend(); ++item) {
        if (item != items.rbegin())
            text.append(separator);
        appendItem(*item);
    }
}

/// \param names contents of the RelativeDistinguishedName
void appendNames(Writer& text, Range names, const KnownTypes& types) {
    appendReversed(text, names, L" + "sv,
                   [&](Range attribute) { appendAttribute(text, attribute, types); });
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

// A name's text is hardly ever longer than its encoding, which has a tag, a length and a type for
// each value where the text has a few characters.

Text toText(const AttributeTypeAndValue& attribute, const DefinedTypes& definedTypes) {
    const Buffer<unsigned char> encoding = aux::encodeDer(attribute, false);
    Writer text(encoding.size());
    appendAttribute(text, encoding, KnownTypes(definedTypes));
    return std::move(text).take();
}

Text toText(const RelativeDistinguishedName& names) {
    Writer text(names.contents().size());
    appendNames(text, names.contents(), knownTypes());
    return std::move(text).take();
}

Text toText(const RDNSequence& names) {
    if (!names.hasValue())
        throw unsetValue(sourceFile, RDNSequence::asn1Type);
    Writer text(names.contents().size());
    appendReversed(text, names.contents(), L", "sv, [&, &types = knownTypes()](Range rdn) {
        appendNames(text, elementAt(rdn.begin(), rdn.end()).contentsRange(), types);
    });
    return std::move(text).take();
}

} // namespace asn1
