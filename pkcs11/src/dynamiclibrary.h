// A shared library of the operating system.
#pragma once

#include "buffer.h"

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
    /// \throws as `throwModuleNotLoaded`
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

/// Reports that a module file cannot be used.
/// \param file the caller's source file, relative, with backslashes
/// \param path the module's, as it was given
/// \param reason what the system says, or what the module lacks
/// \throws Pkcs11Error_CryptokiError "5", always; its parent is the event "ModuleNotLoaded"
[[noreturn]] void throwModuleNotLoaded(const wchar_t* file, const std::string& path,
                                       const buffer::Buffer<wchar_t>& reason,
                                       int line = __builtin_LINE());

/// The system's narrow text, such as a path, as wide text for people to read. Bytes that are not
/// valid text may come out wrong.
buffer::Buffer<wchar_t> widened(const std::string& text);

} // namespace pkcs11
