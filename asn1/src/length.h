// Length octets in the shortest form (X.690 8.1.3, 10.1).
#pragma once

#include <cstddef>

namespace asn1 {

/// The most octets that a length takes.
inline constexpr std::size_t maxLengthOctets = 1 + sizeof(std::size_t);

constexpr std::size_t lengthOctets(std::size_t length) noexcept {
    if (length < 0x80)
        return 1;
    std::size_t octets = 1;
    for (; length != 0; length >>= 8)
        ++octets;
    return octets;
}

/// Writes the `lengthOctets(length)` octets; returns the position behind them.
constexpr unsigned char* writeLength(std::size_t length, unsigned char* out) noexcept {
    const std::size_t following = lengthOctets(length) - 1;
    *out++ = static_cast<unsigned char>(following == 0 ? length : 0x80 | following);
    for (std::size_t i = following; i != 0; --i)
        *out++ = static_cast<unsigned char>(length >> (8 * (i - 1)));
    return out;
}

} // namespace asn1
