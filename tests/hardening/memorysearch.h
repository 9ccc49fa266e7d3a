// Looking for a secret in all of the process's memory.
#pragma once

#include <array>
#include <cstddef>

namespace hardening {

/// Bytes that are kept in disguise, so that a search for them does not find them here.
class Disguised {
public:
    static constexpr std::size_t capacity = 64;

    /// Makes bytes that are nowhere else, the same for the same seed. None of them is zero.
    /// \param size at most `capacity`
    Disguised(unsigned seed, std::size_t size);

    std::size_t size() const noexcept { return size_; }
    unsigned char operator[](std::size_t index) const noexcept;
    /// Writes all bytes, one by one.
    void reveal(unsigned char* to) const noexcept;

private:
    std::array<unsigned char, capacity> bytes_{};
    std::size_t size_;
};

/// How often the bytes lie in memory that this process can read, as they are or, like text that was
/// converted to UTF-16, with a zero behind each. No other thread of the process may free memory
/// meanwhile.
std::size_t timesInMemory(const Disguised& secret);

} // namespace hardening
