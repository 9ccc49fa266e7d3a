// The buffers that carry all bytes and all text of the library.
#pragma once

#include "genericbuffer.h"

namespace buffer {

/// The result of a codec or of a function that makes text. It owns its contents alone, cannot be
/// copied, and becomes a `Buffer` without copying them.
template <class T>
class TmpBuffer : public GenericBuffer<T> {
public:
    TmpBuffer() noexcept = default;
    /// \param size elements, uninitialised; a terminator follows them
    explicit TmpBuffer(std::size_t size) : GenericBuffer<T>(size) {}
    /// A copy of `size` elements; a null pointer (only with size 0) gives a null buffer.
    TmpBuffer(const T* elements, std::size_t size) : GenericBuffer<T>(elements, size) {}
    TmpBuffer(TmpBuffer&&) noexcept = default;
    TmpBuffer& operator=(TmpBuffer&&) noexcept = default;
    TmpBuffer(const TmpBuffer&) = delete;
    TmpBuffer& operator=(const TmpBuffer&) = delete;
    ~TmpBuffer() = default;
};

/// What lies between the storage and `Buffer<T>`: nothing, but for wide buffers, which are
/// polymorphic, a virtual table in front of the storage.
template <class T>
class BufferRoot : public GenericBuffer<T> {
protected:
    using GenericBuffer<T>::GenericBuffer;
    BufferRoot() noexcept = default;
};

template <>
class BufferRoot<wchar_t> : public GenericBuffer<wchar_t> {
public:
    virtual ~BufferRoot() = default;

protected:
    using GenericBuffer<wchar_t>::GenericBuffer;
    BufferRoot() noexcept = default;
    BufferRoot(const BufferRoot&) = default;
    BufferRoot(BufferRoot&&) noexcept = default;
    BufferRoot& operator=(const BufferRoot&) = default;
    BufferRoot& operator=(BufferRoot&&) noexcept = default;
};

/// Bytes (`unsigned char`: DER, PINs, property values), narrow text (`char`) or UTF-16 text
/// (`wchar_t`). Copies share contents of more than 15 elements; see `GenericBuffer` for the
/// rules.
template <class T>
class Buffer : public BufferRoot<T> {
public:
    /// A null buffer.
    Buffer() noexcept = default;
    /// A copy of a zero-terminated string; a null pointer gives a null buffer.
    Buffer(const T* zeroTerminated) requires(!std::is_same_v<T, unsigned char>)
        : BufferRoot<T>(zeroTerminated,
                        zeroTerminated ? std::char_traits<T>::length(zeroTerminated) : 0) {}
    /// \param size elements, uninitialised; a terminator follows them
    explicit Buffer(std::size_t size) : BufferRoot<T>(size) {}
    /// A copy of `size` elements; a null pointer (only with size 0) gives a null buffer.
    Buffer(const T* elements, std::size_t size) : BufferRoot<T>(elements, size) {}
    /// Takes the contents over without copying them, unless their block must not be shared.
    Buffer(TmpBuffer<T>&& temporary) { this->adopt(std::move(temporary)); }
};

/// A run of elements that somebody else owns. Decoders consume it from the front.
template <class T>
class BufferRange {
public:
    constexpr BufferRange() noexcept = default;
    /// From `begin` to before `end`.
    constexpr BufferRange(const T* begin, const T* end) noexcept : begin_(begin), end_(end) {}
    /// `size` elements from `begin` on.
    constexpr BufferRange(const T* begin, std::size_t size) noexcept
        : begin_(begin), end_(begin + size) {}
    /// All of a buffer, as long as that is there and unchanged.
    BufferRange(const GenericBuffer<T>& whole) noexcept
        : begin_(whole.begin()), end_(whole.end()) {}

    constexpr const T* begin() const noexcept { return begin_; } ///< the first element
    constexpr const T* end() const noexcept { return end_; }     ///< past the last element
    constexpr const T* data() const noexcept { return begin_; }  ///< the first element
    /// How many elements are left.
    constexpr std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - begin_); }
    constexpr bool empty() const noexcept { return begin_ == end_; } ///< whether nothing is left
    /// The element at `index`, which must be less than `size()`.
    constexpr const T& operator[](std::size_t index) const noexcept { return begin_[index]; }

    /// Consumes the first `count` elements; `count` must not exceed `size()`.
    constexpr void advance(std::size_t count) noexcept { begin_ += count; }

private:
    const T* begin_ = nullptr;
    const T* end_ = nullptr;
};

// Programs and the library pass buffers across the DLL's boundary, so their layout is fixed:
// (virtual table,) data, size, 16 elements in the object.
static_assert(sizeof(void*) != 8 || sizeof(Buffer<unsigned char>) == 8 + 8 + 16);
static_assert(sizeof(void*) != 8 || sizeof(Buffer<char>) == 8 + 8 + 16);
static_assert(sizeof(void*) != 8 || sizeof(Buffer<wchar_t>) == 8 + 8 + 8 + 16 * sizeof(wchar_t));
static_assert(std::is_polymorphic_v<Buffer<wchar_t>> && !std::is_polymorphic_v<Buffer<char>> &&
              !std::is_polymorphic_v<Buffer<unsigned char>>);

} // namespace buffer
