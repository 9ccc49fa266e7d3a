// Entries of directories, links told from what they lead to.
#include "entryid.h"

#include <cstddef>
#include <memory>
#include <system_error>
#include <type_traits>

namespace mspermissions_test {

namespace {

struct HandleCloser {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleCloser>;

[[noreturn]] void throwLastError(const char* function) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), function);
}

Handle openDirectory(const std::wstring& path) {
    const HANDLE directory =
        CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (directory == INVALID_HANDLE_VALUE)
        throwLastError("CreateFileW");
    return Handle(directory);
}

/// The path without "." and "..", with backslashes, as Windows understands it before it looks for
/// anything.
std::wstring fullPath(const std::wstring& path) {
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), size, full.data(), nullptr));
    return full;
}

std::wstring inCapitals(std::wstring_view text) {
    std::wstring capitals(text);
    LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.data(),
                  static_cast<int>(text.size()), capitals.data(), static_cast<int>(capitals.size()),
                  nullptr, nullptr, 0);
    return capitals;
}

/// Where the last name of a path begins: behind a backslash, at the end for the root of a volume.
std::size_t nameOffset(const std::wstring& path) {
    return path.find_last_of(L'\\') + 1;
}

std::wstring withoutLastBackslash(std::wstring path) {
    if (path.ends_with(L'\\') && !path.ends_with(L":\\"))
        path.pop_back();
    return path;
}

EntryId entryOf(const std::wstring& full) {
    const std::size_t name = nameOffset(full);
    return {openDirectory(full.substr(0, name)).get(), std::wstring_view(full).substr(name)};
}

} // namespace

EntryId::EntryId(const std::wstring& path)
    : EntryId(entryOf(withoutLastBackslash(fullPath(path)))) {}

EntryId::EntryId(HANDLE directory, std::wstring_view name) : name_(inCapitals(name)) {
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(directory, &information))
        throwLastError("GetFileInformationByHandle");
    volume_ = information.dwVolumeSerialNumber;
    high_ = information.nFileIndexHigh;
    low_ = information.nFileIndexLow;
}

} // namespace mspermissions_test
