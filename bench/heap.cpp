// malloc and its kin, counted on their way to the C library. Symbols of the program come before
// those of shared libraries, so these serve all of them.
#include "heap.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

// Relaxed loads and stores instead of additions under a lock: a count may be lost to another
// thread, but what is measured runs on one, and pays next to nothing.
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> bytes{0};

void add(std::atomic<std::size_t>& counter, std::size_t amount) {
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

void* noted(void* memory) {
    if (memory) {
        add(allocations, 1);
        add(bytes, malloc_usable_size(memory));
    }
    return memory;
}

} // namespace

bench::HeapUse bench::heapUse() noexcept {
    return {allocations.load(std::memory_order_relaxed), bytes.load(std::memory_order_relaxed)};
}

extern "C" {

void* malloc(std::size_t size) {
    return noted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return noted(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    const std::size_t before = memory ? malloc_usable_size(memory) : 0;
    void* moved = __libc_realloc(memory, size);
    if (moved || size == 0)
        add(bytes, std::size_t{0} - before);
    return noted(moved);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return noted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return noted(__libc_memalign(alignment, size));
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    *memory = noted(__libc_memalign(alignment, size));
    return *memory ? 0 : ENOMEM;
}

void free(void* memory) {
    if (memory)
        add(bytes, std::size_t{0} - malloc_usable_size(memory));
    __libc_free(memory);
}

} // extern "C"
