// What the tests of certificates and their parts share.
#pragma once

#include "certbuilder.h"
#include "certificate.h"
#include "der.h"

#include <gtest/gtest.h>

#include <iosfwd>
#include <string>
#include <string_view>
#include <typeindex>
#include <utility>
#include <vector>

namespace asn1_test {

using testsupport::Bytes;
using Range = buffer::BufferRange<unsigned char>;
using Params = std::vector<std::pair<std::string, std::string>>;

inline Range rangeOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}
Bytes bytesOf(Range range);
buffer::Buffer<unsigned char> bufferOf(const Bytes& bytes);
/// The low 16 bits of each unit, as the library has them on all systems.
std::u16string unitsOf(const buffer::GenericBuffer<wchar_t>& text);
/// ASCII only; a test fails for anything else.
std::string asciiOf(const buffer::GenericBuffer<wchar_t>& text);

/// What an event says, apart from its place in the sources.
struct Thrown {
    std::type_index type;
    Params params;
    std::vector<Thrown> parents; ///< at most one; std::optional would need a complete type

    friend bool operator==(const Thrown&, const Thrown&) = default;
};
void PrintTo(const Thrown& thrown, std::ostream* out);

/// Checks what all events of this layer have in common.
Thrown describe(const korv::GenericEvent& event);

/// The event that `action` throws; one of type void if it throws none.
template <class Action>
Thrown thrownBy(Action&& action) {
    try {
        action();
    } catch (const korv::GenericEvent& event) {
        return describe(event);
    }
    return {typeid(void), {}, {}};
}

template <class Event>
Thrown event(Params params = {}, std::vector<Thrown> parents = {}) {
    return {typeid(Event), std::move(params), std::move(parents)};
}

Thrown decodeError(std::string_view cause, std::size_t position);
Thrown mismatch(std::size_t position);
/// \param expected, found identifier octets in hexadecimal
Thrown wrongTag(std::string_view expected, std::string_view found, std::size_t position);
Thrown surplus(std::size_t consumed, std::size_t size);
Thrown unset(std::string_view type);
Thrown settingValue(std::string_view type);
Thrown missingField(std::string_view field, std::string_view type);

/// Decodes from a block of just the input's size, so that sanitizers see any read beyond it.
void decode(const Bytes& input, asn1::Asn1& value);
void decodeBer(const Bytes& input, asn1::Asn1& value, bool wholeInput = false);

template <class Value>
Value decoded(const Bytes& input) {
    Value value;
    decode(input, value);
    return value;
}
template <class Value>
Value decodedBer(const Bytes& input) {
    Value value;
    decodeBer(input, value);
    return value;
}

Bytes encoded(const asn1::Asn1& value);

/// Offset of the first occurrence of `part`; throws std::logic_error if there is none.
std::size_t offsetOf(const Bytes& part, const Bytes& whole);

/// A certificate that has every part that a certificate can have.
testsupport::CertBuilder fullCertificate();

/// An element with another identifier octet.
Bytes withTag(unsigned char identifier, Bytes element);

/// `depth` elements with `identifier`, each the contents of the one before.
Bytes nested(unsigned char identifier, std::size_t depth);

/// What a row of a table is about, as the name of a test.
std::string testNameOf(std::string_view what);

/// Turns on the setting for encoded defaults while it lives.
class EncodedDefaultsAccepted {
public:
    EncodedDefaultsAccepted() { asn1::acceptEncodedDefaults(true); }
    ~EncodedDefaultsAccepted() { asn1::acceptEncodedDefaults(false); }
    EncodedDefaultsAccepted(const EncodedDefaultsAccepted&) = delete;
    EncodedDefaultsAccepted& operator=(const EncodedDefaultsAccepted&) = delete;
};

} // namespace asn1_test
