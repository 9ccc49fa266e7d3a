// What fuzz targets are made of. A target takes any bytes, does with them what callers do, and
// requires what must hold whatever the bytes are.
#pragma once

#include "buffer.h"

#include <stdexcept>
#include <typeinfo>

namespace fuzz {

using Input = buffer::BufferRange<unsigned char>;

/// A property did not hold. No target catches it, nor any exception that is not documented.
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
