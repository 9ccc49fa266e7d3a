// Values without members.
#include "simpletypes.h"

#include "bufcodecs.h"
#include "contents.h"
#include "der.h"
#include "unset.h"

#include <boost/multiprecision/cpp_int.hpp>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\simpletypes.cpp";

using Range = BufferRange<unsigned char>;

Range bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

Buffer<unsigned char> copyOf(Range octets) {
    Buffer<unsigned char> copy(octets.size());
    std::copy(octets.begin(), octets.end(), copy.data());
    return copy;
}

std::string_view charactersOf(Range contents) noexcept {
    return {reinterpret_cast<const char*>(contents.begin()), contents.size()};
}

/// Contents that a program sets: copied if they are valid for the type.
Octets checkedContents(const Type& type, Range contents, int line = __builtin_LINE()) {
    if (!contentsFit(type.typeClass, contents, Rules::der))
        throw settingValue(sourceFile, type, line);
    return Octets(copyOf(contents));
}

} // namespace

Range ContentsValue::contentsOrThrow() const {
    if (!hasValue())
        throw unsetValue(sourceFile, type());
    return contents();
}

// BOOLEAN

constinit const Type Boolean::asn1Type{"BOOLEAN", TypeClass::boolean, tag::universal(1)};
const Type& Boolean::type() const noexcept {
    return asn1Type;
}

Boolean::Boolean(bool value) {
    const unsigned char octet = value ? 0xFF : 0x00;
    contents_ = Octets(copyOf({&octet, std::size_t{1}}));
}

bool Boolean::value() const {
    return contentsOrThrow()[0] != 0;
}

// INTEGER

constinit const Type Integer::asn1Type{"INTEGER", TypeClass::integer, tag::universal(2)};
const Type& Integer::type() const noexcept {
    return asn1Type;
}

Integer::Integer(std::int64_t value) {
    unsigned char octets[sizeof(value)];
    auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = sizeof(value); i != 0; --i, bits >>= 8)
        octets[i - 1] = static_cast<unsigned char>(bits);
    *this = fromTwosComplement({octets, sizeof(value)});
}

Integer Integer::fromTwosComplement(Range octets) {
    while (octets.size() > 1 && !contentsFit(TypeClass::integer, octets, Rules::der))
        octets.advance(1);
    Integer number;
    number.contents_ = checkedContents(asn1Type, octets);
    return number;
}

std::int64_t Integer::value() const {
    const Range octets = contentsOrThrow();
    if (octets.size() > sizeof(std::int64_t))
        throw korv::makeEvent<QuorError_Asn1_RangeViolation>(sourceFile, {{L"TYPE", L"INTEGER"}});
    std::uint64_t bits = (octets[0] & 0x80) != 0 ? ~std::uint64_t{0} : 0;
    for (const unsigned char octet : octets)
        bits = bits << 8 | octet;
    return static_cast<std::int64_t>(bits);
}

// BIT STRING

constinit const Type BitString::asn1Type{"BIT STRING", TypeClass::bitString, tag::universal(3)};
const Type& BitString::type() const noexcept {
    return asn1Type;
}

BitString::BitString(Range octets, unsigned unusedBits) {
    if (unusedBits > 7 || (octets.empty() && unusedBits != 0))
        throw settingValue(sourceFile, asn1Type);
    Buffer<unsigned char> contents(octets.size() + 1);
    contents.data()[0] = static_cast<unsigned char>(unusedBits);
    std::copy(octets.begin(), octets.end(), contents.data() + 1);
    contents.data()[octets.size()] = normalLastOctet(TypeClass::bitString, contents);
    contents_ = Octets(std::move(contents));
}

Range BitString::octets() const {
    Range contents = contentsOrThrow();
    contents.advance(1);
    return contents;
}

unsigned BitString::unusedBits() const {
    return contentsOrThrow()[0];
}

bool BitString::bit(std::size_t index) const {
    const Range bits = octets();
    // The unused bits are 0, so they need no look of their own.
    return index / 8 < bits.size() && (bits[index / 8] & (0x80u >> (index % 8))) != 0;
}

// OCTET STRING

constinit const Type OctetString::asn1Type{"OCTET STRING", TypeClass::octetString,
                                           tag::universal(4)};
const Type& OctetString::type() const noexcept {
    return asn1Type;
}

OctetString::OctetString(Buffer<unsigned char> octets) {
    contents_ = Octets(std::move(octets));
}

// OBJECT IDENTIFIER

constinit const Type ObjectIdentifier::asn1Type{"OBJECT IDENTIFIER", TypeClass::objectIdentifier,
                                                tag::universal(6)};
const Type& ObjectIdentifier::type() const noexcept {
    return asn1Type;
}

namespace {

void appendArc(Buffer<unsigned char>& contents, std::uint64_t arc) {
    unsigned shift = 0;
    while (arc >> shift > 0x7F)
        shift += 7;
    for (; shift != 0; shift -= 7)
        contents.append(static_cast<unsigned char>(0x80 | (arc >> shift & 0x7F)));
    contents.append(static_cast<unsigned char>(arc & 0x7F));
}

/// Contents octets of dotted decimal text, or nothing if it is none.
Buffer<unsigned char> parseObjectIdentifier(std::string_view text) {
    Buffer<unsigned char> contents(std::size_t{0});
    std::uint64_t root = 0;
    const char* position = text.data();
    const char* const end = position + text.size();
    for (std::size_t arcs = 0;; ++arcs) {
        std::uint64_t arc = 0;
        const auto [next, error] = std::from_chars(position, end, arc);
        const bool leadingZero = next - position > 1 && *position == '0';
        if (error != std::errc() || leadingZero)
            return {};
        if (arcs == 0)
            root = arc;
        else if (arcs == 1) {
            // X.690 8.19.4: the first two arcs share a number.
            if (root > 2 || (root < 2 && arc > 39) ||
                arc > std::numeric_limits<std::uint64_t>::max() - 80)
                return {};
            appendArc(contents, root * 40 + arc);
        } else
            appendArc(contents, arc);
        if (next == end)
            return arcs == 0 ? Buffer<unsigned char>() : contents;
        if (*next != '.')
            return {};
        position = next + 1;
    }
}

using BigArc = boost::multiprecision::cpp_int;

void appendNumber(TmpBuffer<wchar_t>& text, std::string_view digits) {
    for (const char digit : digits)
        text.append(static_cast<wchar_t>(digit));
}

/// The arc that `octets` encode, as decimal text.
std::string arcText(Range octets, unsigned subtrahend) {
    constexpr std::size_t octetsFitting64Bits = 9;
    if (octets.size() <= octetsFitting64Bits) {
        std::uint64_t arc = 0;
        for (const unsigned char octet : octets)
            arc = arc << 7 | (octet & 0x7Fu);
        return std::to_string(arc - subtrahend);
    }
    BigArc arc = 0;
    for (const unsigned char octet : octets)
        arc = (arc << 7) | (octet & 0x7Fu);
    return BigArc(arc - subtrahend).str();
}

} // namespace

ObjectIdentifier::ObjectIdentifier(std::string_view dottedDecimal) {
    const Buffer<unsigned char> contents = parseObjectIdentifier(dottedDecimal);
    if (contents.isNull())
        throw settingValue(sourceFile, asn1Type);
    contents_ = checkedContents(asn1Type, contents);
}

TmpBuffer<wchar_t> ObjectIdentifier::text() const {
    const Range contents = contentsOrThrow();
    TmpBuffer<wchar_t> text;
    const unsigned char* arcBegin = contents.begin();
    for (const unsigned char* octet = arcBegin; octet != contents.end(); ++octet) {
        if ((*octet & 0x80) != 0)
            continue;
        const Range arc{arcBegin, octet + 1};
        unsigned root = 0;
        if (arcBegin == contents.begin()) {
            root = arc.size() > 1 ? 2 : std::min(arc[0] / 40u, 2u);
            appendNumber(text, std::to_string(root));
        }
        text.append(L'.');
        appendNumber(text, arcText(arc, root * 40));
        arcBegin = octet + 1;
    }
    return text;
}

std::strong_ordering operator<=>(const ObjectIdentifier& a, const ObjectIdentifier& b) noexcept {
    return std::lexicographical_compare_three_way(a.contents().begin(), a.contents().end(),
                                                  b.contents().begin(), b.contents().end());
}

// Character strings

constinit const Type UTF8String::asn1Type{"UTF8String", TypeClass::characterString,
                                          tag::universal(12)};
constinit const Type PrintableString::asn1Type{"PrintableString", TypeClass::characterString,
                                               tag::universal(19)};
constinit const Type TeletexString::asn1Type{"TeletexString", TypeClass::characterString,
                                             tag::universal(20)};
constinit const Type UniversalString::asn1Type{"UniversalString", TypeClass::fourByteString,
                                               tag::universal(28)};
constinit const Type BMPString::asn1Type{"BMPString", TypeClass::twoByteString, tag::universal(30)};
const Type& UTF8String::type() const noexcept {
    return asn1Type;
}
const Type& PrintableString::type() const noexcept {
    return asn1Type;
}
const Type& TeletexString::type() const noexcept {
    return asn1Type;
}
const Type& UniversalString::type() const noexcept {
    return asn1Type;
}
const Type& BMPString::type() const noexcept {
    return asn1Type;
}

namespace {

/// The low 16 bits of each big-endian character of `octetsEach` octets.
TmpBuffer<wchar_t> wideCharacters(Range contents, std::size_t octetsEach) {
    TmpBuffer<wchar_t> text(contents.size() / octetsEach);
    for (std::size_t i = 0; i != text.size(); ++i) {
        const unsigned char* last = contents.begin() + (i + 1) * octetsEach - 1;
        const unsigned high = octetsEach > 1 ? last[-1] : 0u;
        text.data()[i] = static_cast<wchar_t>(high << 8 | *last);
    }
    return text;
}

} // namespace

TmpBuffer<wchar_t> characterText(CharacterSet set, Range contents) {
    switch (set) {
    case CharacterSet::utf8: {
        // Most names are plain ASCII.
        if (std::ranges::all_of(contents, [](unsigned char octet) { return octet < 0x80; }))
            return wideCharacters(contents, 1);
        TmpBuffer<wchar_t> text(std::size_t{0});
        buffer::Utf8Decoder::decode(contents, text);
        return text;
    }
    case CharacterSet::bmp:
        return wideCharacters(contents, 2);
    case CharacterSet::universal:
        return wideCharacters(contents, 4);
    default:
        return wideCharacters(contents, 1);
    }
}

CharacterString::CharacterString(Buffer<unsigned char> octets) {
    contents_ = Octets(std::move(octets));
}

TmpBuffer<wchar_t> CharacterString::text() const {
    return characterText(static_cast<CharacterSet>(type().identifier), contentsOrThrow());
}

BMPString::BMPString(Buffer<unsigned char> octets) : CharacterString(std::move(octets)) {
    if (!contentsFit(asn1Type.typeClass, contents(), Rules::der))
        throw settingValue(sourceFile, asn1Type);
}

UniversalString::UniversalString(Buffer<unsigned char> octets)
    : CharacterString(std::move(octets)) {
    if (!contentsFit(asn1Type.typeClass, contents(), Rules::der))
        throw settingValue(sourceFile, asn1Type);
}

// Times

constinit const Type UTCTime::asn1Type{"UTCTime", TypeClass::utcTime, tag::universal(23)};
const Type& UTCTime::type() const noexcept {
    return asn1Type;
}
UTCTime::UTCTime(std::string_view text) {
    contents_ = checkedContents(asn1Type, bytesOf(text));
}
std::string_view UTCTime::text() const {
    return charactersOf(contentsOrThrow());
}

constinit const Type GeneralizedTime::asn1Type{"GeneralizedTime", TypeClass::generalizedTime,
                                               tag::universal(24)};
const Type& GeneralizedTime::type() const noexcept {
    return asn1Type;
}
GeneralizedTime::GeneralizedTime(std::string_view text) {
    contents_ = checkedContents(asn1Type, bytesOf(text));
}
std::string_view GeneralizedTime::text() const {
    return charactersOf(contentsOrThrow());
}

// Open types

constinit const Type OpenType::asn1Type{"ANY", TypeClass::openType, tag::none};
const Type& OpenType::type() const noexcept {
    return asn1Type;
}

OpenType::OpenType(const Asn1& value) {
    encoding_ = Octets(aux::encodeDer(value, false));
}

OpenType OpenType::fromEncoding(Buffer<unsigned char> encoding) {
    Element element{};
    if (parseElement(encoding.begin(), encoding.end(), Rules::der, element) != ElementFault::none ||
        element.end != encoding.end())
        throw settingValue(sourceFile, asn1Type);
    OpenType value;
    value.encoding_ = Octets(std::move(encoding));
    return value;
}

} // namespace asn1
