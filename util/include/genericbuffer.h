// The storage that all buffers share: short contents inside the object, long contents in a
// reference-counted heap block, always followed by a zero element.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

namespace buffer {

/// Heap blocks of buffers: a header, then `capacity` + 1 elements. A pointer to a block is a
/// pointer to its first element; the header stands just before it.
///
/// \tparam T       element type
/// \tparam Counter 32-bit atomic counter
/// \tparam Traits  how elements are copied and measured
template <class T, class Counter, class Traits>
class CounterReferencedBufferManager {
public:
    /// 16 bytes, so that what is stored behind it is aligned for any structure.
    struct alignas(16) Header {
        std::uint64_t capacity; ///< elements that fit, the terminator not counted
        Counter references;
    };
    static_assert(sizeof(Counter) == 4);
    static_assert(sizeof(Header) == 16 && offsetof(Header, references) == 8);
    static_assert(alignof(Header) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

    /// The `capacity` of a block that copies must not share. The growth rule gives at least 40.
    static constexpr std::uint64_t notShareable = 15;

    /// The capacity of a new block for `size` elements: half as much again and 16 more, so that
    /// repeated appends are amortised.
    /// \throws std::bad_alloc if no memory could hold such a block
    static std::size_t grownCapacity(std::size_t size) {
        if (size > maxElements / 2)
            throw std::bad_array_new_length();
        return size + size / 2 + 16;
    }

    /// A new block with a reference count of 1 whose elements are uninitialised.
    /// \throws std::bad_alloc
    static T* allocate(std::size_t capacity) {
        if (capacity > maxElements)
            throw std::bad_array_new_length();
        void* memory = ::operator new(sizeof(Header) + (capacity + 1) * sizeof(T));
        auto* head = ::new (memory) Header{capacity, {}};
        head->references.store(1, std::memory_order_relaxed);
        return reinterpret_cast<T*>(head + 1);
    }

    static std::size_t capacity(const T* block) noexcept {
        return static_cast<std::size_t>(header(block).capacity);
    }
    static bool isShareable(const T* block) noexcept {
        return header(block).capacity != notShareable;
    }
    static void markNotShareable(T* block) noexcept { header(block).capacity = notShareable; }

    /// Whether nobody else refers to the block.
    static bool isSole(const T* block) noexcept {
        return header(block).references.load(std::memory_order_acquire) == 1;
    }
    static std::uint32_t references(const T* block) noexcept {
        return header(block).references.load(std::memory_order_relaxed);
    }
    static void addReference(T* block) noexcept {
        header(block).references.fetch_add(1, std::memory_order_relaxed);
    }
    static void setSole(T* block) noexcept {
        header(block).references.store(1, std::memory_order_relaxed);
    }

    /// Drops one reference and frees the block with the last one.
    static void release(T* block) noexcept {
        Header& head = header(block);
        if (head.references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            ::operator delete(&head);
    }

private:
    static constexpr std::size_t maxElements =
        (static_cast<std::size_t>((std::numeric_limits<std::ptrdiff_t>::max)()) - sizeof(Header)) /
            sizeof(T) -
        1;

    static Header& header(T* block) noexcept { return reinterpret_cast<Header*>(block)[-1]; }
    static const Header& header(const T* block) noexcept {
        return reinterpret_cast<const Header*>(block)[-1];
    }
};

/// The common part of `Buffer` and `TmpBuffer`.
///
/// A buffer is null (no data, size 0), empty (size 0, data points at a zero element) or holds
/// elements. Up to 15 elements lie in the object itself and never allocate; more lie in a heap
/// block that copies share until one of them is written to. The element at index `size()` is
/// zero in every buffer that is not null.
///
/// Copies of one buffer may be made, used and released by different threads at once. One buffer
/// object must not be written by one thread while another uses it.
template <class T,
          class Manager =
              CounterReferencedBufferManager<T, std::atomic<std::uint32_t>, std::char_traits<T>>,
          class Traits = std::char_traits<T>>
class GenericBuffer {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    using value_type = T; ///< the element

    /// How many elements fit into the object itself, the terminator not counted.
    static constexpr std::size_t inlineCapacity = 15;

    /// Null for a null buffer. Writing through the pointer is for buffers that were just made or
    /// detached: it does not separate the buffer from its copies.
    T* data() noexcept { return data_; }
    const T* data() const noexcept { return data_; } ///< for reading
    /// How many elements there are, the terminator not counted.
    std::size_t size() const noexcept { return static_cast<std::size_t>(size_); }

    bool isNull() const noexcept { return data_ == nullptr; } ///< no contents
    /// True for empty and for null buffers.
    bool empty() const noexcept { return size_ == 0; }

    /// The contents as a zero-terminated string, never a null pointer. Elements that are zero
    /// themselves are handed out as they are.
    const T* c_str() const noexcept { return data_ ? data_ : &zero; }

    const T* begin() const noexcept { return data_; }       ///< for reading
    const T* end() const noexcept { return data_ + size_; } ///< the terminator
    /// The element at `index`; at `size()` the terminator.
    const T& operator[](std::size_t index) const noexcept { return data_[index]; }

    /// Elements that fit without a new block: 15 while the contents are in the object.
    std::size_t capacity() const noexcept {
        return isInHeap() ? Manager::capacity(data_) : inlineCapacity;
    }
    /// How many buffers share the contents; 0 if they are not in a heap block.
    std::uint32_t references() const noexcept {
        return isInHeap() ? Manager::references(data_) : 0;
    }

    /// Makes this buffer the only one that uses its contents and returns them for writing.
    /// \throws std::bad_alloc; the buffer is unchanged then
    T* detach() {
        if (isInHeap() && !Manager::isSole(data_))
            moveToNewBlock(size(), Manager::grownCapacity(size()));
        return data_;
    }

    /// Keeps the first min(size(), newSize) elements; further ones are uninitialised. A null
    /// buffer becomes an empty one at least, and the contents are this buffer's alone afterwards,
    /// even if the size stays the same.
    /// \throws std::bad_alloc; the buffer is unchanged then
    void resize(std::size_t newSize) {
        if (newSize <= inlineCapacity)
            moveInline(newSize);
        else if (canHoldInPlace(newSize))
            setSize(newSize);
        else
            moveToNewBlock(newSize, Manager::grownCapacity(newSize));
    }

    /// Makes this a null buffer.
    void reset() noexcept {
        releaseBlock();
        data_ = nullptr;
        size_ = 0;
    }

    /// Appends `count` elements, which may lie in this buffer itself, its terminator included.
    /// \throws std::bad_alloc; the buffer is unchanged then
    void append(const T* elements, std::size_t count) {
        if (count > (std::numeric_limits<std::size_t>::max)() - size())
            throw std::bad_array_new_length();
        const std::size_t oldSize = size();
        if (!ownsAddress(elements)) {
            resize(oldSize + count);
            copyElements(data_ + oldSize, elements, count);
            return;
        }
        const auto offset = static_cast<std::size_t>(elements - data_);
        resize(oldSize + count);
        // Where the terminator was the copies begin, and a new block never had it.
        const std::size_t copied = count <= oldSize - offset ? count : oldSize - offset;
        copyElements(data_ + oldSize, data_ + offset, copied);
        if (copied != count)
            data_[oldSize + copied] = T{};
    }
    /// Appends the contents of a buffer, which may be this one.
    void append(const GenericBuffer& other) { append(other.data_, other.size()); }
    /// Appends one element.
    void append(T element) {
        resize(size() + 1);
        data_[size_ - 1] = element;
    }

    /// From now on copies get a block of their own. Contents in the object are never shared, so
    /// nothing changes for them. For a buffer that was just made: the mark lies in the block and
    /// would hold for buffers that share it already.
    void markNotShareable() noexcept {
        if (isInHeap())
            Manager::markNotShareable(data_);
    }

    /// Compares contents only: a null buffer equals an empty one.
    friend bool operator==(const GenericBuffer& a, const GenericBuffer& b) noexcept {
        return a.size_ == b.size_ &&
               (a.size_ == 0 || std::memcmp(a.data_, b.data_, a.size() * sizeof(T)) == 0);
    }
    /// Lexicographic by unsigned element value, a proper prefix before the longer buffer.
    friend std::strong_ordering operator<=>(const GenericBuffer& a,
                                            const GenericBuffer& b) noexcept {
        const std::size_t common = a.size_ < b.size_ ? a.size() : b.size();
        const int order = common == 0 ? 0 : compareElements(a.data_, b.data_, common);
        if (order != 0)
            return order <=> 0;
        return a.size_ <=> b.size_;
    }

protected:
    GenericBuffer() noexcept {}
    /// \param elements may be null only if `size` is 0; the buffer is null then
    GenericBuffer(const T* elements, std::size_t size) {
        if (elements) {
            allocateFor(size);
            copyElements(data_, elements, size);
        }
    }
    explicit GenericBuffer(std::size_t size) { allocateFor(size); }

    GenericBuffer(const GenericBuffer& other) {
        if (other.isInHeap() && Manager::isShareable(other.data_))
            share(other);
        else if (other.data_) {
            allocateFor(other.size());
            copyElements(data_, other.data_, other.size());
        }
    }
    GenericBuffer(GenericBuffer&& other) noexcept { takeFrom(other); }

    GenericBuffer& operator=(const GenericBuffer& other) {
        if (this != &other)
            *this = GenericBuffer(other);
        return *this;
    }
    GenericBuffer& operator=(GenericBuffer&& other) noexcept {
        if (this != &other) {
            releaseBlock();
            takeFrom(other);
        }
        return *this;
    }
    ~GenericBuffer() { releaseBlock(); }

    bool isInHeap() const noexcept { return data_ != nullptr && data_ != inline_; }
    bool isInline() const noexcept { return data_ == inline_; }

    /// Takes a block over from its only owner; a block that must not be shared is copied.
    void adopt(GenericBuffer&& sole) {
        if (sole.isInHeap() && !Manager::isShareable(sole.data_)) {
            *this = GenericBuffer(sole.data_, sole.size());
            return;
        }
        *this = std::move(sole);
        if (isInHeap())
            Manager::setSole(data_);
    }

    /// \param from may be null if `count` is 0
    static void copyElements(T* to, const T* from, std::size_t count) noexcept {
        if (count != 0)
            Traits::copy(to, from, count);
    }

private:
    static constexpr T zero{};

    /// By the C library, which compares many elements at once: the keys of a map begin alike, and
    /// a loop over 64-bit words takes twice as long.
    static int compareElements(const T* a, const T* b, std::size_t count) noexcept {
        if constexpr (sizeof(T) == 1)
            return std::memcmp(a, b, count);
        else
            return Traits::compare(a, b, count);
    }

    void setSize(std::size_t size) noexcept {
        size_ = size;
        data_[size] = T{};
    }

    void allocateFor(std::size_t size) {
        data_ = size <= inlineCapacity ? inline_ : Manager::allocate(Manager::grownCapacity(size));
        setSize(size);
    }

    void share(const GenericBuffer& other) noexcept {
        data_ = other.data_;
        size_ = other.size_;
        Manager::addReference(data_);
        // Other threads may be copying the same block: its terminator is written only if it has
        // to be, so that concurrent copies do not race.
        if (data_[size_] != T{})
            data_[size_] = T{};
    }

    void takeFrom(GenericBuffer& other) noexcept {
        data_ = other.data_;
        size_ = other.size_;
        if (other.isInline()) {
            data_ = inline_;
            // Of fixed size, and so a few instructions instead of a call.
            std::memcpy(inline_, other.inline_, sizeof(inline_));
        }
        other.data_ = nullptr;
        other.size_ = 0;
    }

    bool canHoldInPlace(std::size_t newSize) const noexcept {
        return isInHeap() && Manager::isSole(data_) && newSize <= Manager::capacity(data_);
    }

    /// Whether the element is one of this buffer's, or its terminator.
    bool ownsAddress(const T* element) const noexcept {
        return data_ != nullptr && !std::less<const T*>()(element, data_) &&
               !std::less<const T*>()(data_ + size_, element);
    }

    void moveInline(std::size_t newSize) noexcept {
        if (isInHeap()) {
            T* block = data_;
            copyElements(inline_, block, newSize);
            Manager::release(block);
        }
        data_ = inline_;
        setSize(newSize);
    }

    void moveToNewBlock(std::size_t newSize, std::size_t newCapacity) {
        T* block = Manager::allocate(newCapacity);
        if (data_)
            copyElements(block, data_, size_ < newSize ? size() : newSize);
        releaseBlock();
        data_ = block;
        setSize(newSize);
    }

    void releaseBlock() noexcept {
        if (isInHeap())
            Manager::release(data_);
    }

    T* data_ = nullptr;
    std::uint64_t size_ = 0;
    T inline_[inlineCapacity + 1] = {};
};

} // namespace buffer
