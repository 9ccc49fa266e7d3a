// Loading modules on POSIX systems, for the layers' own tests.
#include "dynamiclibrary.h"

#include <filesystem>
#include <system_error>

#include <dlfcn.h>

namespace pkcs11 {

namespace {

namespace fs = std::filesystem;

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\dynamiclibraryposix.cpp";

constexpr char systemDirectory[] = "/usr/lib";

// Where a name without a directory is; empty if it is nowhere.
fs::path findByName(const fs::path& name) {
    std::error_code ignored;
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    for (const fs::path& directory : {program.parent_path(), fs::path(systemDirectory)})
        // With an empty directory the name would be looked for in the current one.
        if (!directory.empty() && fs::is_regular_file(directory / name, ignored))
            return directory / name;
    return {};
}

// The absolute path that is loaded; empty if there is none.
fs::path resolve(const fs::path& path) {
    std::error_code ignored; // without a current directory the result is empty
    return path.has_parent_path() ? fs::absolute(path, ignored) : findByName(path);
}

} // namespace

DynamicLibrary::DynamicLibrary(const std::string& path) {
    // A zero would end the path early and load another file; an empty one is this program.
    if (path.empty() || path.find('\0') != std::string::npos)
        throwModuleNotLoaded(sourceFile, path, L"not a file name");
    const fs::path resolved = resolve(path);
    if (resolved.empty())
        throwModuleNotLoaded(sourceFile, path, L"no such file");
    handle_ = dlopen(resolved.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_)
        throwModuleNotLoaded(sourceFile, path, widened(dlerror()));
}

DynamicLibrary::~DynamicLibrary() {
    if (handle_)
        dlclose(handle_);
}

DynamicLibrary::Function DynamicLibrary::function(const char* name) const noexcept {
    return reinterpret_cast<Function>(dlsym(handle_, name));
}

buffer::Buffer<wchar_t> widened(const std::string& text) {
    buffer::Buffer<wchar_t> wide(text.size());
    for (std::size_t i = 0; i != text.size(); ++i)
        wide.data()[i] = static_cast<wchar_t>(static_cast<unsigned char>(text[i]));
    return wide;
}

} // namespace pkcs11
