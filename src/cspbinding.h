// Which CSP and key container a store's certificate is bound to, and how the library records it.
#pragma once

#include "buffer.h"

#include <cstdint>
#include <string>

namespace pkcs11::certstoreupdater {

using buffer::Buffer;
using buffer::BufferRange;

/// Context property in which the library records the binding of a certificate that it registers;
/// in the range that CryptoAPI leaves to applications.
constexpr std::uint32_t korvaneCspRefPropertyId = 54086;

/// The names of a key container and of the CSP that it belongs to. All comparisons are exact.
struct CspBinding {
    std::wstring containerName;
    std::wstring cspName;

    /// Whether this is a binding to the CSP and, unless it is empty, to the container.
    bool isTo(const std::wstring& csp, const std::wstring& container) const {
        return cspName == csp && (container.empty() || containerName == container);
    }
};

/// The value of the `KorvaneCspRef` property: the container's and the CSP's name in UTF-8, each
/// UTF-16 unit encoded by itself and each name followed by a line feed, without a terminator.
/// \throws std::bad_alloc
Buffer<unsigned char> encodeKorvaneCspRef(const CspBinding& binding);

/// Reads the property's first two lines; a missing one is empty, further ones are ignored.
/// \throws buffer::BufferError_InvalidEncodingUnit if `value` is not UTF-8
CspBinding decodeKorvaneCspRef(BufferRange<unsigned char> value);

} // namespace pkcs11::certstoreupdater
