// Memory for what nobody else is to see.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>

namespace updater {

/// Room for a secret, wiped when it is done with. It neither grows nor moves, so that no copy
/// is left behind.
template <class T, std::size_t Capacity>
class WipedArray {
public:
    WipedArray() = default;
    WipedArray(const WipedArray&) = delete;
    WipedArray& operator=(const WipedArray&) = delete;
    ~WipedArray() { SecureZeroMemory(elements_.data(), sizeof elements_); }

    T* data() noexcept { return elements_.data(); }
    const T* data() const noexcept { return elements_.data(); }
    const T& operator[](std::size_t index) const noexcept { return elements_[index]; }
    static constexpr std::size_t capacity() noexcept { return Capacity; }

private:
    std::array<T, Capacity> elements_{};
};

} // namespace updater
