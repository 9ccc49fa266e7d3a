// The memory that the library takes.
#include "libraryallocations.h"

#include "importslot.h"

#include <windows.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace torture {

namespace {

/// Takes nothing from operator new, whose callers it serves.
template <class T>
struct MallocAllocator {
    using value_type = T;

    MallocAllocator() = default;
    template <class Other>
    MallocAllocator(const MallocAllocator<Other>&) noexcept {}

    T* allocate(std::size_t count) {
        if (void* memory = std::malloc(count * sizeof(T)))
            return static_cast<T*>(memory);
        throw std::bad_alloc();
    }
    void deallocate(T* memory, std::size_t) noexcept { std::free(memory); }
    friend bool operator==(const MallocAllocator&, const MallocAllocator&) noexcept { return true; }
};

struct State {
    std::unordered_set<void*, std::hash<void*>, std::equal_to<>, MallocAllocator<void*>> live;
    std::size_t count = 0;
    std::size_t failing = 0;
};
State* state = nullptr;

bool admit() {
    return ++state->count != state->failing;
}

void* noted(void* memory) {
    if (memory)
        state->live.insert(memory);
    return memory;
}

// Each redirected function and where its calls go otherwise.
using New = void* (*)(std::size_t);
using NothrowNew = void* (*)(std::size_t, const std::nothrow_t&);
using Calloc = void* (*)(std::size_t, std::size_t);
using Delete = void (*)(void*);
using SizedDelete = void (*)(void*, std::size_t);
New originalNew, originalArrayNew, originalMalloc;
NothrowNew originalNothrowNew;
Calloc originalCalloc;
Delete originalDelete, originalArrayDelete, originalFree;
SizedDelete originalSizedDelete, originalSizedArrayDelete;

template <New& original>
void* allocateOrThrow(std::size_t size) {
    if (!admit())
        throw std::bad_alloc();
    return noted(original(size));
}
void* allocateNothrow(std::size_t size, const std::nothrow_t& tag) {
    return admit() ? noted(originalNothrowNew(size, tag)) : nullptr;
}
void* allocateMalloc(std::size_t size) {
    return admit() ? noted(originalMalloc(size)) : nullptr;
}
void* allocateCalloc(std::size_t count, std::size_t size) {
    return admit() ? noted(originalCalloc(count, size)) : nullptr;
}
template <Delete& original>
void release(void* memory) {
    state->live.erase(memory);
    original(memory);
}
template <SizedDelete& original>
void releaseSized(void* memory, std::size_t size) {
    state->live.erase(memory);
    original(memory, size);
}

/// A function of one module, redirected for the length of a scope.
class Redirection {
public:
    template <class Function>
    Redirection(void* module, std::string_view dll, std::string_view name, Function& original,
                Function replacement)
        : slot_(module, dll, name), target_(slot_.target()) {
        original = reinterpret_cast<Function>(target_);
        slot_.redirect(reinterpret_cast<testsupport::ImportSlot::Address>(replacement));
    }
    Redirection(Redirection&& other) noexcept
        : slot_(std::move(other.slot_)), target_(std::exchange(other.target_, nullptr)) {}
    Redirection& operator=(Redirection&&) = delete;
    ~Redirection() {
        if (target_)
            slot_.redirect(target_);
    }

private:
    testsupport::ImportSlot slot_;
    testsupport::ImportSlot::Address target_;
};

std::vector<Redirection>& redirections() {
    static std::vector<Redirection> all;
    return all;
}

template <class Function>
void redirect(void* module, std::string_view dll, std::string_view name, Function& original,
              Function replacement) {
    if (testsupport::ImportSlot::exists(module, dll, name))
        redirections().emplace_back(module, dll, name, original, replacement);
}

constexpr char runtime[] = "libstdc++-6.dll";
constexpr char cRuntime[] = "msvcrt.dll";

void redirectReleases(void* module) {
    redirect(module, runtime, "_ZdlPv", originalDelete, &release<originalDelete>);
    redirect(module, runtime, "_ZdaPv", originalArrayDelete, &release<originalArrayDelete>);
    redirect(module, runtime, "_ZdlPvy", originalSizedDelete, &releaseSized<originalSizedDelete>);
    redirect(module, runtime, "_ZdaPvy", originalSizedArrayDelete,
             &releaseSized<originalSizedArrayDelete>);
}

} // namespace

LibraryAllocations::LibraryAllocations() {
    state = new State;
    redirections().reserve(32);
    void* library = GetModuleHandleW(L"certstoreupdater.dll");
    redirectReleases(library);
    redirectReleases(GetModuleHandleW(nullptr));
    redirect(library, cRuntime, "free", originalFree, &release<originalFree>);
    redirect(library, runtime, "_Znwy", originalNew, &allocateOrThrow<originalNew>);
    redirect(library, runtime, "_Znay", originalArrayNew, &allocateOrThrow<originalArrayNew>);
    redirect(library, runtime, "_ZnwyRKSt9nothrow_t", originalNothrowNew, &allocateNothrow);
    redirect(library, cRuntime, "malloc", originalMalloc, &allocateMalloc);
    redirect(library, cRuntime, "calloc", originalCalloc, &allocateCalloc);
}

LibraryAllocations::~LibraryAllocations() {
    while (!redirections().empty())
        redirections().pop_back();
    delete state;
    state = nullptr;
}

void LibraryAllocations::begin(std::size_t failing) {
    state->count = 0;
    state->failing = failing;
}

std::size_t LibraryAllocations::count() const noexcept {
    return state->count;
}

bool LibraryAllocations::hasFailed() const noexcept {
    return state->failing != 0 && state->count >= state->failing;
}

std::size_t LibraryAllocations::live() const noexcept {
    return state->live.size();
}

} // namespace torture
