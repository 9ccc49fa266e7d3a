// What fuzz targets are made of. A target takes any bytes, does with them what callers do, and
// requires what must hold whatever the bytes are.
#pragma once

#include "buffer.h"
#include "genericevent.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace fuzz {

using Input = buffer::BufferRange<unsigned char>;

/// A property did not hold. No target catches it, nor any exception that is not documented, so both
/// reach the fuzzer.
class Broken : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

inline void require(bool holds, const char* property) {
    if (!holds)
        throw Broken(property);
}

/// Whether `action` returns, rather than throws just the documented class.
template <class Documented, class Action>
bool returns(Action action) {
    try {
        action();
    } catch (const Documented& error) {
        require(typeid(error) == typeid(Documented), "a family's base or a sibling is thrown");
        return false;
    }
    return true;
}

/// Takes a byte from the front of an input; 0 if there is none.
inline unsigned char takeByte(Input& input) {
    if (input.empty())
        return 0;
    const unsigned char byte = input[0];
    input.advance(1);
    return byte;
}

/// The 16-bit units that an input stands for, high byte first; an odd last byte is left out.
inline std::wstring unitsOf(Input input) {
    std::wstring units;
    for (std::size_t i = 0; i + 1 < input.size(); i += 2)
        units += static_cast<wchar_t>(input[i] << 8 | input[i + 1]);
    return units;
}

/// A parameter that an event must have.
inline std::wstring textParam(const korv::GenericEvent& event, const wchar_t* key) {
    const buffer::Buffer<wchar_t>* value = event.param(key);
    require(value != nullptr, "a parameter is missing");
    return value->c_str();
}
inline std::size_t numberParam(const korv::GenericEvent& event, const wchar_t* key) {
    return std::stoull(textParam(event, key));
}

void ber(Input input);
void certificate(Input input);
void cspbinding(Input input);
void hostilemodule(Input input);
void names(Input input);
void openssl(Input input);
void utf8(Input input);

struct Target {
    const char* name;
    void (*run)(Input input);
};

inline constexpr Target targets[] = {
    {"ber", ber},
    {"certificate", certificate},
    {"cspbinding", cspbinding},
    {"hostilemodule", hostilemodule},
    {"names", names},
    {"openssl", openssl},
    {"utf8", utf8},
};

} // namespace fuzz
