// Loading modules on Windows. The only file of this layer that knows Windows.
#include "dynamiclibrary.h"

#include "genericevent.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\dynamiclibrarywindows.cpp";

[[noreturn]] void throwNotLoaded(const std::string& path, DWORD error,
                                 int line = __builtin_LINE()) {
    throwModuleNotLoaded(sourceFile, path, korv::decimal(error), line);
}

// Text of the active code page as UTF-16; empty, with GetLastError set, if it is no such text.
std::wstring decode(const std::string& text, DWORD flags) {
    const int size = static_cast<int>(text.size());
    const int wideSize = MultiByteToWideChar(CP_ACP, flags, text.data(), size, nullptr, 0);
    if (wideSize <= 0)
        return {};
    std::wstring wide(static_cast<std::size_t>(wideSize), L'\0');
    wide.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_ACP, flags, text.data(), size, wide.data(), wideSize)));
    return wide;
}

// The text that a Windows function writes into its caller's buffer, however long it is. `fill`
// takes the buffer and its capacity. It returns the length of the text, 0 on failure, or at least
// the capacity if the buffer is too small.
template <class Fill>
std::wstring filled(Fill fill) {
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        const auto capacity = static_cast<DWORD>(text.size());
        const DWORD length = fill(text.data(), capacity);
        text.resize(length < capacity ? length : std::size_t{capacity} * 2);
        if (length < capacity)
            return text;
    }
}

std::wstring programDirectory() {
    std::wstring program = filled([](wchar_t* buffer, DWORD capacity) {
        return GetModuleFileNameW(nullptr, buffer, capacity);
    });
    program.resize(program.find_last_of(L'\\') + 1);
    return program;
}

std::wstring systemDirectory() {
    std::wstring system = filled(
        [](wchar_t* buffer, DWORD capacity) { return GetSystemDirectoryW(buffer, capacity); });
    if (!system.empty())
        system += L'\\';
    return system;
}

bool isFile(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Where a name without a directory is; empty if it is nowhere.
std::wstring findByName(std::wstring name) {
    // As the loader completes names.
    if (name.find(L'.') == std::wstring::npos)
        name += L".dll";
    for (const std::wstring& directory : {programDirectory(), systemDirectory()})
        // With an empty directory the name would be looked for in the current one.
        if (!directory.empty() && isFile(directory + name))
            return directory + name;
    return {};
}

// The absolute path that is loaded.
struct Resolved {
    std::wstring path; // empty if there is none
    DWORD error;       // why, then
};

Resolved resolve(const std::wstring& path) {
    if (path.find_first_of(L"\\/:") == std::wstring::npos)
        return {findByName(path), ERROR_MOD_NOT_FOUND};
    Resolved absolute{};
    absolute.path = filled([&](wchar_t* buffer, DWORD capacity) {
        return GetFullPathNameW(path.c_str(), capacity, buffer, nullptr);
    });
    absolute.error = GetLastError();
    return absolute;
}

// What goes wrong is reported to the caller, not to the user in a dialog.
class NoErrorDialogs {
public:
    NoErrorDialogs() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &previous_); }
    ~NoErrorDialogs() { SetThreadErrorMode(previous_, nullptr); }
    NoErrorDialogs(const NoErrorDialogs&) = delete;
    NoErrorDialogs& operator=(const NoErrorDialogs&) = delete;

private:
    DWORD previous_ = 0;
};

} // namespace

DynamicLibrary::DynamicLibrary(const std::string& path) {
    // A zero would end the path early and load another file.
    if (path.empty() || path.size() > 0x7FFF || path.find('\0') != std::string::npos)
        throwNotLoaded(path, ERROR_INVALID_NAME);
    const std::wstring wide = decode(path, MB_ERR_INVALID_CHARS);
    if (wide.empty())
        throwNotLoaded(path, GetLastError());
    const auto [resolved, resolveError] = resolve(wide);
    if (resolved.empty())
        throwNotLoaded(path, resolveError);

    DWORD error = ERROR_SUCCESS;
    {
        const NoErrorDialogs quiet;
        handle_ = LoadLibraryExW(resolved.c_str(), nullptr,
                                 LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
        error = GetLastError();
    }
    if (!handle_)
        throwNotLoaded(path, error);
}

DynamicLibrary::~DynamicLibrary() {
    if (handle_)
        FreeLibrary(static_cast<HMODULE>(handle_));
}

DynamicLibrary::Function DynamicLibrary::function(const char* name) const noexcept {
    return reinterpret_cast<Function>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

buffer::Buffer<wchar_t> widened(const std::string& text) {
    const std::wstring wide = decode(text, 0);
    return buffer::Buffer<wchar_t>(wide.data(), wide.size());
}

} // namespace pkcs11
