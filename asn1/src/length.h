// Length octets in the shortest form (X.690 8.1.3, 10.1).
#pragma once

#include <bit>
#include <cstddef>

namespace asn1 {

constexpr std::size_t lengthOctets(std::size_t length) noexcept {
    if (length < 0x80)
        return 1;
    const auto bits = static_cast<std::size_t>(std::bit_width(length));
    return 1 + (bits + 7) / 8;
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
