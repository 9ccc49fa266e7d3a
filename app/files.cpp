// Paths of files, and what owns an open one.
#include "files.h"

#include <cstddef>
#include <string_view>

namespace updater {

namespace {

/// What a Windows function fills into a buffer of its caller's, whatever its length. `fill` takes
/// buffer and capacity and returns the length, at least the capacity if that is too small, and 0
/// on failure.
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

} // namespace

Handle openExisting(const std::wstring& name, DWORD access, DWORD sharing) {
    const HANDLE file = CreateFileW(name.c_str(), access, sharing, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    return Handle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

LinkTo linkAt(const std::wstring& path) {
    constexpr DWORD anySharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE opened =
        CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, anySharing, nullptr, OPEN_EXISTING,
                    FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (opened == INVALID_HANDLE_VALUE)
        return LinkTo::nothing;
    const Handle entry(opened);
    FILE_ATTRIBUTE_TAG_INFO information{};
    if (!GetFileInformationByHandleEx(opened, FileAttributeTagInfo, &information,
                                      sizeof information))
        return LinkTo::nothing;
    // Other reparse points are the files themselves, kept elsewhere.
    if (!(information.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ||
        !IsReparseTagNameSurrogate(information.ReparseTag))
        return LinkTo::nothing;
    return information.FileAttributes & FILE_ATTRIBUTE_DIRECTORY ? LinkTo::folder : LinkTo::file;
}

std::wstring fullPath(const std::wstring& path) {
    return filled([&](wchar_t* buffer, DWORD capacity) {
        return GetFullPathNameW(path.c_str(), capacity, buffer, nullptr);
    });
}

std::wstring finalPath(HANDLE file) {
    const std::wstring path = filled([&](wchar_t* buffer, DWORD capacity) {
        return GetFinalPathNameByHandleW(file, buffer, capacity, FILE_NAME_NORMALIZED);
    });
    // \\?\ stands before what is not interpreted any more; not all that take a path know it.
    constexpr std::wstring_view verbatim = L"\\\\?\\";
    constexpr std::wstring_view verbatimShare = L"\\\\?\\UNC\\";
    if (path.starts_with(verbatimShare))
        return L"\\\\" + path.substr(verbatimShare.size());
    return path.starts_with(verbatim) ? path.substr(verbatim.size()) : path;
}

std::wstring programFolder() {
    std::wstring program = filled([](wchar_t* buffer, DWORD capacity) {
        return GetModuleFileNameW(nullptr, buffer, capacity);
    });
    program.resize(program.find_last_of(L'\\') + 1);
    return program;
}

std::wstring systemFolder() {
    std::wstring system = filled(
        [](wchar_t* buffer, DWORD capacity) { return GetSystemDirectoryW(buffer, capacity); });
    if (!system.empty())
        system += L'\\';
    return system;
}

std::wstring systemErrorText(DWORD error) {
    wchar_t* text = nullptr;
    const DWORD size = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const std::unique_ptr<wchar_t, decltype(&LocalFree)> owner(text, LocalFree);
    std::wstring result(text ? text : L"", size);
    result.resize(result.find_last_not_of(L".\r\n ") + 1);
    constexpr std::wstring_view placeHolder = L"%1";
    if (const std::size_t at = result.find(placeHolder); at != std::wstring::npos)
        result.replace(at, placeHolder.size(), L"it");
    const std::wstring code = L"error " + std::to_wstring(error);
    return result.empty() ? code : result + L" (" + code + L")";
}

std::string toActiveCodePage(const std::wstring& text) {
    const int size = static_cast<int>(text.size());
    std::string narrow;
    narrow.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_ACP, 0, text.data(), size, nullptr, 0, nullptr, nullptr)));
    WideCharToMultiByte(CP_ACP, 0, text.data(), size, narrow.data(),
                        static_cast<int>(narrow.size()), nullptr, nullptr);
    return narrow;
}

std::wstring fromActiveCodePage(const std::string& text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide;
    wide.resize(
        static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0)));
    MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

} // namespace updater
