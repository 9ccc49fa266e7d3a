// What the tests of certificates and their parts share.
#include "asn1support.h"

#include "throwsite.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <ostream>
#include <stdexcept>

namespace asn1_test {

using namespace testsupport;

Bytes bytesOf(Range range) {
    return Bytes(range.begin(), range.end());
}

buffer::Buffer<unsigned char> bufferOf(const Bytes& bytes) {
    buffer::Buffer<unsigned char> copy(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.data());
    return copy;
}

std::u16string unitsOf(const buffer::GenericBuffer<wchar_t>& text) {
    std::u16string units;
    for (const wchar_t unit : text)
        units.push_back(static_cast<char16_t>(unit));
    return units;
}

std::string asciiOf(const buffer::GenericBuffer<wchar_t>& text) {
    std::string ascii;
    for (const wchar_t unit : text) {
        EXPECT_LT(static_cast<unsigned>(unit), 0x80u);
        ascii.push_back(static_cast<char>(unit));
    }
    return ascii;
}

void PrintTo(const Thrown& thrown, std::ostream* out) {
    *out << thrown.type.name() << ' ' << ::testing::PrintToString(thrown.params);
    for (const Thrown& parent : thrown.parents) {
        *out << " because of ";
        PrintTo(parent, out);
    }
}

Thrown describe(const korv::GenericEvent& event) {
    EXPECT_EQ(event.code(), 0u);
    testsupport::expectThrowSite(event);
    Thrown thrown{typeid(event), {}, {}};
    for (const auto& param : event.params())
        thrown.params.emplace_back(asciiOf(param.key), asciiOf(param.value));
    if (event.parent())
        thrown.parents.push_back(describe(*event.parent()));
    return thrown;
}

Thrown decodeError(std::string_view cause, std::size_t position) {
    return event<asn1::QuorError_Asn1_Decode>(
        {{"CAUSE", std::string(cause)}, {"POSITION", std::to_string(position)}});
}

Thrown mismatch(std::size_t position) {
    return decodeError("ValueDoesNotMatch", position);
}

Thrown wrongTag(std::string_view expected, std::string_view found, std::size_t position) {
    Thrown thrown = mismatch(position);
    thrown.parents.push_back(event<asn1::QuorError_Asn1_InvalidTag>(
        {{"EXPECTED_TAG", std::string(expected)}, {"FOUND_TAG", std::string(found)}}));
    return thrown;
}

Thrown surplus(std::size_t consumed, std::size_t size) {
    return event<asn1::QuorError_Asn1_Decode>({{"CAUSE", "NotAllBufferConsumed"},
                                               {"CONSUMED_BYTES", std::to_string(consumed)},
                                               {"BUFFER_SIZE", std::to_string(size)}});
}

Thrown unset(std::string_view type) {
    return event<asn1::QuorError_Asn1_UnsetValue>({{"TYPE", std::string(type)}});
}

Thrown settingValue(std::string_view type) {
    return event<asn1::QuorError_Asn1_SettingValue>({{"TYPE", std::string(type)}});
}

Thrown missingField(std::string_view field, std::string_view type) {
    return event<asn1::QuorError_Asn1_Encode>({{"FIELD_NAME", std::string(field)}}, {unset(type)});
}

namespace {

class ExactCopy {
public:
    explicit ExactCopy(const Bytes& input)
        : size_(input.size()), block_(std::make_unique<unsigned char[]>(size_)) {
        std::copy(input.begin(), input.end(), block_.get());
    }
    Range range() const { return {block_.get(), size_}; }

private:
    std::size_t size_;
    std::unique_ptr<unsigned char[]> block_;
};

} // namespace

void decode(const Bytes& input, asn1::Asn1& value) {
    asn1::der::decode(ExactCopy(input).range(), value);
}

void decodeBer(const Bytes& input, asn1::Asn1& value, bool wholeInput) {
    asn1::aux::decodeBer(ExactCopy(input).range(), value, wholeInput);
}

Bytes encoded(const asn1::Asn1& value) {
    return bytesOf(asn1::aux::encodeDer(value, false));
}

std::size_t offsetOf(const Bytes& part, const Bytes& whole) {
    const auto found = std::search(whole.begin(), whole.end(), part.begin(), part.end());
    if (found == whole.end())
        throw std::logic_error("the certificate lacks its broken part");
    return static_cast<std::size_t>(found - whole.begin());
}

CertBuilder fullCertificate() {
    return CertBuilder()
        .serialNumber(0x1234567)
        .subject(name({{"C", "DE"}, {"O", "Example"}, {"CN", "Subject"}}))
        .issuer(name({{"C", "DE"}, {"O", "Example"}, {"CN", "Issuer"}}))
        .validity(sequence({utcTime("260101000000Z"), generalizedTime("20510101000000Z")}))
        .uniqueIds(element(0x81, fromHex("00 C1C2")) + element(0x82, fromHex("04 D0")))
        .extensions({keyUsage({0, 2}), basicConstraints(true, 3),
                     extension("2.5.29.17", sequence({element(0x82, fromText("a.example"))}))});
}

Bytes withTag(unsigned char identifier, Bytes element) {
    element.at(0) = identifier;
    return element;
}

Bytes nested(unsigned char identifier, std::size_t depth) {
    // From the inside out, in reverse, so that nothing is moved again and again.
    Bytes reversed;
    for (std::size_t i = 0; i != depth; ++i) {
        const std::size_t length = reversed.size();
        std::size_t octets = 0;
        for (std::size_t rest = length; rest != 0; rest >>= 8, ++octets)
            reversed.push_back(static_cast<unsigned char>(rest & 0xFF));
        if (length < 0x80) {
            if (octets == 0)
                reversed.push_back(0);
        } else
            reversed.push_back(static_cast<unsigned char>(0x80 | octets));
        reversed.push_back(identifier);
    }
    std::reverse(reversed.begin(), reversed.end());
    return reversed;
}

std::string testNameOf(std::string_view what) {
    std::string name(what);
    std::replace_if(
        name.begin(), name.end(),
        [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return name;
}

} // namespace asn1_test
