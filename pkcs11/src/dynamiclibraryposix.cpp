// Loading modules on POSIX systems, for the rooms' own tests.
#include "dynamiclibrary.h"

#include "cktypes.h"
#include "pkcs11error.h"

#include <filesystem>

#include <system_error>

#include <dlfcn.h>

namespace pkcs11 {

namespace {

namespace fs = std::filesystem;

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\dynamiclibraryposix.cpp";

constexpr char systemDirectory[] = "/usr/lib";

[[noreturn]] void throwNotLoaded(const std::string& path, const std::string& error,
                                 int line = __builtin_LINE()) {
    throw cryptokiError(sourceFile, ckr::generalError,
                        moduleNotLoaded(sourceFile, path, pathAsText(error), line), line);
}

// Where a name without a directory is; empty if it is nowhere.
fs::path findByName(const fs::path& name) {
    std::error_code ignored;
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    for (const fs::path& directory : {program.parent_path(), fs::path(systemDirectory)})
        // A directory that the system does not tell would be the current one.
        if (!directory.empty() && fs::is_regular_file(directory / name, ignored))
            return directory / name;
    return {};
}

// The absolute path that is loaded; empty if there is none.
fs::path resolve(const fs::path& path) {
    std::error_code ignored; // without a current directory there is no path
    return path.has_parent_path() ? fs::absolute(path, ignored) : findByName(path);
}

} // namespace

DynamicLibrary::DynamicLibrary(const std::string& path) {
    // A zero would end the path early and load another file; an empty one is this program.
    if (path.empty() || path.find('\0') != std::string::npos)
        throwNotLoaded(path, "not a file name");
    const fs::path resolved = resolve(path);
    if (resolved.empty())
        throwNotLoaded(path, "no such file");
    handle_ = dlopen(resolved.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_)
        throwNotLoaded(path, dlerror());
}

DynamicLibrary::~DynamicLibrary() {
    if (handle_)
        dlclose(handle_);
}

DynamicLibrary::Function DynamicLibrary::function(const char* name) const noexcept {
    return reinterpret_cast<Function>(dlsym(handle_, name));
}

buffer::Buffer<wchar_t> pathAsText(const std::string& path) {
    buffer::Buffer<wchar_t> text(path.size());
    for (std::size_t i = 0; i != path.size(); ++i)
        text.data()[i] = static_cast<wchar_t>(static_cast<unsigned char>(path[i]));
    return text;
}

} // namespace pkcs11
