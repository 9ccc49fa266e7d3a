// A shared library of the operating system.
#pragma once

#include "buffer.h"
#include "genericevent.h"

#include <string>
#include <utility>

namespace pkcs11 {

/// Owns one reference to a loaded library.
class DynamicLibrary {
public:
    using Function = void (*)();

    /// Refers to no library.
    DynamicLibrary() noexcept = default;
    /// Loads a library; `Libraries::load` says where it is looked for.
    /// \throws Pkcs11Error_CryptokiError "5" whose parent is a `moduleNotLoaded`
    explicit DynamicLibrary(const std::string& path);
    DynamicLibrary(DynamicLibrary&& other) noexcept
        : handle_(std::exchange(other.handle_, nullptr)) {}
    DynamicLibrary& operator=(DynamicLibrary&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~DynamicLibrary();

    /// An exported function, or null. It may be called as long as the library is loaded.
    Function function(const char* name) const noexcept;

    /// Whether both are the same loaded library, under whatever path.
    friend bool operator==(const DynamicLibrary&, const DynamicLibrary&) noexcept = default;

private:
    void* handle_ = nullptr;
};

/// Why a module file cannot be used: the event "ModuleNotLoaded" that is the parent of the error.
/// \param error what the system says, or what the file lacks
/// \param line that of the throw site
korv::GenericEvent moduleNotLoaded(const wchar_t* file, const std::string& path,
                                   const buffer::Buffer<wchar_t>& error, int line);

/// A path as text that people read; bytes that are no text come out somehow.
buffer::Buffer<wchar_t> pathAsText(const std::string& path);

} // namespace pkcs11
