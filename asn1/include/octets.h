// A run of bytes within bytes that several values share.
#pragma once

#include "buffer.h"

#include <utility>

namespace asn1 {

using buffer::Buffer;
using buffer::BufferRange;
using buffer::TmpBuffer;

/// Bytes that are kept alive by sharing the buffer that they lie in. Copies and slices do not
/// copy them. No value (null) differs from a value of no bytes.
class Octets {
public:
    Octets() noexcept = default;
    /// All of `bytes`; null if `bytes` is null.
    Octets(Buffer<unsigned char> bytes) : bytes_(std::move(bytes)), size_(bytes_.size()) {}

    Octets(const Octets&) = default;
    Octets& operator=(const Octets&) = default;
    /// `other` is null afterwards.
    Octets(Octets&& other) noexcept
        : bytes_(std::move(other.bytes_)), offset_(std::exchange(other.offset_, 0)),
          size_(std::exchange(other.size_, 0)) {}
    /// `other` is null afterwards.
    Octets& operator=(Octets&& other) noexcept {
        bytes_ = std::move(other.bytes_);
        offset_ = std::exchange(other.offset_, 0);
        size_ = std::exchange(other.size_, 0);
        return *this;
    }
    ~Octets() = default;

    bool isNull() const noexcept { return bytes_.isNull(); } ///< no value
    std::size_t size() const noexcept { return size_; }      ///< in bytes
    /// All of them, as long as this value is there and unchanged.
    BufferRange<unsigned char> range() const noexcept { return {bytes_.data() + offset_, size_}; }

    /// The bytes that `part` covers; `part` must lie within `range()`.
    Octets slice(BufferRange<unsigned char> part) const {
        return {bytes_, static_cast<std::size_t>(part.begin() - bytes_.data()), part.size()};
    }

    /// The bytes as a buffer: the shared one if they are all of it, otherwise a copy.
    Buffer<unsigned char> toBuffer() const {
        return size_ == bytes_.size() ? bytes_ : Buffer<unsigned char>(range().begin(), size_);
    }

    /// Adds bytes at the end, without copying those before them if nobody else uses them. Null
    /// becomes the bytes alone. \throws std::bad_alloc; nothing has changed then
    void append(BufferRange<unsigned char> more) {
        if (size_ != bytes_.size()) {
            Octets whole(toBuffer());
            whole.append(more);
            *this = std::move(whole);
            return;
        }
        bytes_.append(more.begin(), more.size());
        size_ = bytes_.size();
    }

private:
    Octets(const Buffer<unsigned char>& bytes, std::size_t offset, std::size_t size)
        : bytes_(bytes), offset_(offset), size_(size) {}

    Buffer<unsigned char> bytes_;
    std::size_t offset_ = 0; // an offset, not a pointer: short contents move with the buffer
    std::size_t size_ = 0;
};

} // namespace asn1
