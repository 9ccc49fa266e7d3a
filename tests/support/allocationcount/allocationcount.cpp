// Replacements of the program's allocation operators; all others end in these.
#include "allocationcount.h"

#include <cstdlib>

#ifdef _WIN32
#include <malloc.h>
#endif

namespace testsupport {

namespace {

constinit thread_local AllocationCount* innermost = nullptr;

} // namespace

AllocationCount::AllocationCount() noexcept : outer_(innermost) {
    innermost = this;
}

AllocationCount::~AllocationCount() {
    innermost = outer_;
}

bool AllocationCount::admit() noexcept {
    bool isAdmitted = true;
    for (AllocationCount* count = innermost; count; count = count->outer_) {
        ++count->allocations_;
        if (count->untilFailure_ != 0 && --count->untilFailure_ == 0) {
            count->hasFailed_ = true;
            isAdmitted = false;
        }
    }
    return isAdmitted;
}

void AllocationCount::noteRelease() noexcept {
    for (AllocationCount* count = innermost; count; count = count->outer_)
        ++count->releases_;
}

namespace {

void* allocate(std::size_t size) noexcept {
    return AllocationCount::admit() ? std::malloc(size == 0 ? 1 : size) : nullptr;
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
    if (!AllocationCount::admit())
        return nullptr;
    const auto step = static_cast<std::size_t>(alignment);
#ifdef _WIN32
    return _aligned_malloc(size == 0 ? 1 : size, step);
#else
    return std::aligned_alloc(step, (size + step) / step * step);
#endif
}

void* orThrow(void* memory) {
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept {
    if (!memory)
        return;
    AllocationCount::noteRelease();
    std::free(memory);
}

void releaseAligned(void* memory) noexcept {
    if (!memory)
        return;
    AllocationCount::noteRelease();
#ifdef _WIN32
    _aligned_free(memory);
#else
    std::free(memory);
#endif
}

} // namespace

} // namespace testsupport

using namespace testsupport;

void* operator new(std::size_t size) {
    return orThrow(allocate(size));
}
void* operator new[](std::size_t size) {
    return orThrow(allocate(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return orThrow(allocateAligned(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return orThrow(allocateAligned(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, alignment);
}

void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    releaseAligned(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    releaseAligned(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    releaseAligned(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    releaseAligned(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    releaseAligned(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    releaseAligned(memory);
}
