// Bytes as hexadecimal digits, and back. Nothing here uses the library.
#pragma once

#include <charconv>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

/// Two upper-case digits a byte.
inline std::string toHex(std::span<const unsigned char> bytes) {
    std::string digits;
    for (const unsigned char byte : bytes)
        for (const int nibble : {byte >> 4, byte & 0x0F})
            digits += "0123456789ABCDEF"[nibble];
    return digits;
}

/// \param digits two a byte, of either case; blanks anywhere are skipped
/// \throws std::invalid_argument for an odd number of digits and for other characters
inline std::vector<unsigned char> fromHex(std::string_view digits) {
    std::string packed(digits);
    std::erase(packed, ' ');
    if (packed.size() % 2 != 0)
        throw std::invalid_argument("an odd number of hexadecimal digits");
    std::vector<unsigned char> bytes(packed.size() / 2);
    const char* next = packed.data();
    for (unsigned char& byte : bytes) {
        const auto [end, error] = std::from_chars(next, next + 2, byte, 16);
        if (end != next + 2)
            throw std::invalid_argument("no hexadecimal digits: " + packed);
        next = end;
    }
    return bytes;
}

} // namespace testsupport
