// Paths of files, and what owns an open one.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <type_traits>

namespace updater {

struct CloseAnyHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
/// Owns a kernel object; never INVALID_HANDLE_VALUE.
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseAnyHandle>;

/// Opens what exists (CreateFileW). Null, with GetLastError set, if that fails.
Handle openExisting(const std::wstring& name, DWORD access, DWORD sharing);

/// What a path names itself, before any link is followed.
enum class LinkTo {
    nothing, ///< no link, or the system does not tell
    file,
    folder
};
LinkTo linkAt(const std::wstring& path);

/// The whole path of what may be relative; nothing needs to exist there.
std::wstring fullPath(const std::wstring& path);

/// The path of an open file without links and short names, as the system has it; empty if the
/// system does not tell.
std::wstring finalPath(HANDLE file);

/// Folders with a backslash at the end; empty if the system does not tell.
std::wstring programFolder();
std::wstring systemFolder();

/// What an error code means, in the language of the system, without a full stop, and the code.
/// Where the system names a thing by a place holder, it is "it" here.
std::wstring systemErrorText(DWORD error);

/// Text in the active code page; characters that it lacks are replaced.
std::string toActiveCodePage(const std::wstring& text);
std::wstring fromActiveCodePage(const std::string& text);

} // namespace updater
