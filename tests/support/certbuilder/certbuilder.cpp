// Certificates made to measure.
#include "certbuilder.h"

#include <algorithm>
#include <charconv>
#include <map>

namespace testsupport {

namespace {

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

void appendBase128(Bytes& out, std::uint64_t arc) {
    Bytes reversed{static_cast<unsigned char>(arc & 0x7F)};
    while ((arc >>= 7) != 0)
        reversed.push_back(static_cast<unsigned char>(0x80 | (arc & 0x7F)));
    out.insert(out.end(), reversed.rbegin(), reversed.rend());
}

std::string_view dottedType(std::string_view type) {
    static const std::map<std::string_view, std::string_view> known{
        {"CN", "2.5.4.3"}, {"C", "2.5.4.6"},  {"L", "2.5.4.7"},
        {"ST", "2.5.4.8"}, {"O", "2.5.4.10"}, {"OU", "2.5.4.11"},
    };
    const auto found = known.find(type);
    return found == known.end() ? type : found->second;
}

Bytes bigEndian(char32_t character, std::size_t octets) {
    Bytes out;
    for (std::size_t i = octets; i != 0; --i)
        out.push_back(static_cast<unsigned char>(character >> (8 * (i - 1))));
    return out;
}

} // namespace

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes fromText(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes element(unsigned char identifier, const Bytes& contents) {
    Bytes out{identifier};
    if (contents.size() < 0x80)
        out.push_back(static_cast<unsigned char>(contents.size()));
    else {
        Bytes length;
        for (std::size_t rest = contents.size(); rest != 0; rest >>= 8)
            length.insert(length.begin(), static_cast<unsigned char>(rest & 0xFF));
        out.push_back(static_cast<unsigned char>(0x80 | length.size()));
        out = std::move(out) + length;
    }
    return std::move(out) + contents;
}

Bytes sequence(std::initializer_list<Bytes> members) {
    return element(0x30, joined(members));
}
Bytes set(std::initializer_list<Bytes> members) {
    return element(0x31, joined(members));
}

Bytes integer(std::int64_t value) {
    Bytes octets = bigEndian(static_cast<char32_t>(static_cast<std::uint64_t>(value) >> 32), 4) +
                   bigEndian(static_cast<char32_t>(value & 0xFFFFFFFF), 4);
    const auto isRedundant = [&] {
        return octets.size() > 1 && ((octets[0] == 0x00 && octets[1] < 0x80) ||
                                     (octets[0] == 0xFF && octets[1] >= 0x80));
    };
    while (isRedundant())
        octets.erase(octets.begin());
    return element(0x02, octets);
}

Bytes boolean(bool value) {
    return element(0x01, {static_cast<unsigned char>(value ? 0xFF : 0x00)});
}
Bytes null() {
    return element(0x05, {});
}
Bytes octetString(const Bytes& contents) {
    return element(0x04, contents);
}
Bytes bitString(const Bytes& bits, unsigned char unusedBits) {
    return element(0x03, Bytes{unusedBits} + bits);
}

Bytes namedBits(std::initializer_list<unsigned> bits) {
    if (bits.size() == 0)
        return bitString({});
    const unsigned last = std::max(bits);
    Bytes octets(last / 8 + 1);
    for (const unsigned bit : bits)
        octets[bit / 8] = static_cast<unsigned char>(octets[bit / 8] | (0x80u >> (bit % 8)));
    return bitString(octets, static_cast<unsigned char>(7 - last % 8));
}

Bytes objectIdentifier(std::string_view dotted) {
    std::vector<std::uint64_t> arcs;
    const char* position = dotted.data();
    const char* const end = position + dotted.size();
    while (position < end) {
        arcs.emplace_back();
        position = std::from_chars(position, end, arcs.back()).ptr + 1;
    }
    Bytes contents;
    appendBase128(contents, arcs.at(0) * 40 + arcs.at(1));
    for (std::size_t i = 2; i < arcs.size(); ++i)
        appendBase128(contents, arcs[i]);
    return element(0x06, contents);
}

Bytes utf8String(std::string_view text) {
    return element(0x0C, fromText(text));
}
Bytes printableString(std::string_view text) {
    return element(0x13, fromText(text));
}
Bytes ia5String(std::string_view text) {
    return element(0x16, fromText(text));
}
Bytes teletexString(const Bytes& octets) {
    return element(0x14, octets);
}

Bytes bmpString(std::u16string_view text) {
    Bytes octets;
    for (const char16_t unit : text)
        octets = std::move(octets) + bigEndian(unit, 2);
    return element(0x1E, octets);
}

Bytes universalString(std::u32string_view text) {
    Bytes octets;
    for (const char32_t character : text)
        octets = std::move(octets) + bigEndian(character, 4);
    return element(0x1C, octets);
}

Bytes utcTime(std::string_view text) {
    return element(0x17, fromText(text));
}
Bytes generalizedTime(std::string_view text) {
    return element(0x18, fromText(text));
}

Bytes explicitly(unsigned number, const Bytes& inner) {
    return element(static_cast<unsigned char>(0xA0 | number), inner);
}

Bytes attribute(std::string_view type, const Bytes& value) {
    return sequence({objectIdentifier(dottedType(type)), value});
}

Bytes name(std::initializer_list<std::pair<std::string_view, std::string_view>> attributes) {
    Bytes rdns;
    for (const auto& [type, value] : attributes)
        rdns = std::move(rdns) + set({attribute(type, utf8String(value))});
    return element(0x30, rdns);
}

Bytes nameOf(std::initializer_list<Bytes> rdns) {
    return sequence(rdns);
}

Bytes extension(std::string_view extnId, const Bytes& value, std::optional<bool> critical) {
    return sequence(
        {objectIdentifier(extnId), critical ? boolean(*critical) : Bytes(), octetString(value)});
}

Bytes keyUsage(std::initializer_list<unsigned> bits) {
    return extension("2.5.29.15", namedBits(bits), true);
}

Bytes basicConstraints(std::optional<bool> cA, std::optional<int> pathLength) {
    return extension(
        "2.5.29.19",
        sequence({cA ? boolean(*cA) : Bytes(), pathLength ? integer(*pathLength) : Bytes()}), true);
}

CertBuilder::CertBuilder()
    : version_(explicitly(0, integer(2))), serialNumber_(integer(1)),
      algorithm_(sequence({objectIdentifier("1.2.840.113549.1.1.11"), null()})),
      validity_(sequence({utcTime("260101000000Z"), utcTime("360101000000Z")})),
      publicKey_(sequence({sequence({objectIdentifier("1.2.840.113549.1.1.1"), null()}),
                           bitString(sequence({integer(0x7FFFFFFF), integer(65537)}))})),
      signature_(bitString(Bytes(32, 0x5A))) {
    names("Subject", "Issuer");
}

CertBuilder& CertBuilder::version(const Bytes& taggedVersion) {
    version_ = taggedVersion;
    return *this;
}
CertBuilder& CertBuilder::serialNumber(std::int64_t number) {
    return serialNumber(integer(number));
}
CertBuilder& CertBuilder::serialNumber(const Bytes& encoding) {
    serialNumber_ = encoding;
    return *this;
}
CertBuilder& CertBuilder::signatureAlgorithm(const Bytes& encoding) {
    algorithm_ = encoding;
    return *this;
}
CertBuilder& CertBuilder::issuer(const Bytes& name) {
    issuer_ = name;
    return *this;
}
CertBuilder& CertBuilder::subject(const Bytes& name) {
    subject_ = name;
    return *this;
}
CertBuilder& CertBuilder::names(std::string_view subjectName, std::string_view issuerName) {
    return subject(name({{"CN", subjectName}})).issuer(name({{"CN", issuerName}}));
}
CertBuilder& CertBuilder::validity(const Bytes& encoding) {
    validity_ = encoding;
    return *this;
}
CertBuilder& CertBuilder::publicKey(const Bytes& encoding) {
    publicKey_ = encoding;
    return *this;
}
CertBuilder& CertBuilder::uniqueIds(const Bytes& encodings) {
    uniqueIds_ = encodings;
    return *this;
}
CertBuilder& CertBuilder::extensions(std::initializer_list<Bytes> list) {
    return rawExtensions(explicitly(3, sequence(list)));
}
CertBuilder& CertBuilder::rawExtensions(const Bytes& taggedExtensions) {
    extensions_ = taggedExtensions;
    return *this;
}
CertBuilder& CertBuilder::signature(const Bytes& encoding) {
    signature_ = encoding;
    return *this;
}

Bytes CertBuilder::toBeSigned() const {
    return sequence({version_, serialNumber_, algorithm_, issuer_, validity_, subject_, publicKey_,
                     uniqueIds_, extensions_});
}

Bytes CertBuilder::build() const {
    return sequence({toBeSigned(), algorithm_, signature_});
}

} // namespace testsupport
