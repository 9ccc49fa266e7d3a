// Decoding of BER, for all kinds of types: the first byte chooses the type, its highest bit
// whether the value must be the whole input.
#include "certificate.h"
#include "der.h"
#include "fuzztarget.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace fuzz {

namespace {

using asn1::QuorError_Asn1_Decode;

void requireSame(const asn1::Asn1& a, const asn1::Asn1& b, const char* property) {
    require(a.cmp(b, asn1::Amatch::exact) == 0, property);
}

/// The value at the beginning of the input, or nothing.
template <class Value>
std::optional<Value> first(Input input) {
    Value value;
    if (!returns<QuorError_Asn1_Decode>([&] { asn1::aux::decodeBer(input, value, false); }))
        return std::nullopt;
    return value;
}

/// The encoding is DER of the same value.
template <class Value>
void checkEncoding(const Value& value) {
    const buffer::Buffer<unsigned char> encoding = asn1::aux::encodeDer(value, false);
    Value strict;
    asn1::der::decode(encoding, strict);
    requireSame(strict, value, "its encoding means something else");
    require(asn1::aux::encodeDer(strict, false) == encoding, "it does not encode to the same DER");
    require(asn1::der::cmp(strict, value, false) == 0, "equal values have other encodings");
}

/// With surplus bytes refused, the value ends where the error says.
template <class Value>
void checkWholeInput(Input input, const std::optional<Value>& atFront) {
    Value whole;
    try {
        asn1::aux::decodeBer(input, whole, true);
        require(atFront.has_value(), "surplus bytes make it acceptable");
        requireSame(whole, *atFront, "the whole input means something else");
    } catch (const QuorError_Asn1_Decode& error) {
        requireSame(whole, Value(), "a refusal changed the value");
        if (!atFront)
            return;
        const std::size_t consumed = numberParam(error, L"CONSUMED_BYTES");
        require(numberParam(error, L"BUFFER_SIZE") == input.size(), "another size was given");
        require(consumed < input.size(), "nothing was left over");
        asn1::aux::decodeBer({input.begin(), consumed}, whole, true);
        requireSame(whole, *atFront, "the consumed bytes mean something else");
    }
}

/// What is DER is BER of the same value. Strict decoding ignores constructed bits; in BER that of a
/// string says that it is in segments.
template <class Value>
void checkStrictness(Input input, const std::optional<Value>& atFront) {
    Value strict;
    if (!returns<QuorError_Asn1_Decode>([&] { asn1::der::decode(input, strict); }))
        return;
    const buffer::Buffer<unsigned char> encoding = asn1::aux::encodeDer(strict, false);
    if (!std::ranges::equal(encoding, input))
        return;
    require(atFront.has_value(), "DER is refused as BER");
    requireSame(strict, *atFront, "DER means something else as BER");
}

template <class Value>
void check(Input input, bool wholeInput) {
    const std::optional<Value> atFront = first<Value>(input);
    if (atFront)
        checkEncoding(*atFront);
    checkStrictness(input, atFront);
    if (wholeInput)
        checkWholeInput(input, atFront);
}

constexpr void (*checks[])(Input, bool) = {
    check<asn1::Certificate>,
    check<asn1::Signed>,
    check<asn1::CertificateV3>,
    check<asn1::Extensions>,
    check<asn1::Extension>,
    check<asn1::BasicConstraintsSyntax>,
    check<asn1::AlgorithmIdentifier>,
    check<asn1::PublicKeyInfo>,
    check<asn1::Validity>,
    check<asn1::Time>,
    check<asn1::Name>,
    check<asn1::RDNSequence>,
    check<asn1::AttributeTypeAndValue>,
    check<asn1::DirectoryString>,
    check<asn1::OpenType>,
    check<asn1::Boolean>,
    check<asn1::Integer>,
    check<asn1::BitString>,
    check<asn1::OctetString>,
    check<asn1::ObjectIdentifier>,
    check<asn1::UTF8String>,
    check<asn1::BMPString>,
    check<asn1::UniversalString>,
    check<asn1::UTCTime>,
    check<asn1::GeneralizedTime>,
};

} // namespace

void ber(Input input) {
    const unsigned char choice = takeByte(input);
    checks[(choice & 0x7F) % std::size(checks)](input, (choice & 0x80) != 0);
}

} // namespace fuzz
