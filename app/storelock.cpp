// One run at a time changes a store.
#include "storelock.h"

#include <windows.h>

#include <shlobj.h>

#include <chrono>
#include <cstdint>
#include <memory>

namespace updater {

namespace {

// The system tells nobody when a file is closed, so the lock is looked at again and again.
constexpr std::chrono::milliseconds betweenLooks{100};

Failure notLocked(const std::wstring& store, const std::wstring& reason) {
    return {ExitCode::store, L"the store \"" + store +
                                 L"\" cannot be reserved for this run, and is unchanged: " +
                                 reason + L"; make sure that you may write there"};
}

/// With a backslash at the end.
/// \throws Failure if the user has no such folder
std::wstring localApplicationData(const std::wstring& store) {
    wchar_t* text = nullptr;
    const HRESULT result =
        SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_CREATE, nullptr, &text);
    const std::unique_ptr<wchar_t, decltype(&CoTaskMemFree)> owner(text, CoTaskMemFree);
    if (FAILED(result))
        throw notLocked(store, L"the folder of local application data: " +
                                   systemErrorText(static_cast<DWORD>(result)));
    return std::wstring(text) + L"\\";
}

/// The name of a store in 16 digits (FNV-1a), whatever its length and characters; letter case does
/// not count, as in the registry. Stores that share one wait for each other without need.
std::wstring digest(std::wstring store) {
    CharLowerBuffW(store.data(), static_cast<DWORD>(store.size()));
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const wchar_t unit : store)
        hash = (hash ^ unit) * 0x100000001B3;
    std::wstring digits;
    for (int shift = 60; shift >= 0; shift -= 4)
        digits += L"0123456789abcdef"[(hash >> shift) & 0xF];
    return digits;
}

std::wstring lockFileOf(const std::wstring& store) {
    const std::wstring folder = localApplicationData(store) + L"certstoreupdate";
    if (!CreateDirectoryW(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
        throw notLocked(store, folder + L": " + systemErrorText(GetLastError()));
    return folder + L"\\" + digest(store) + L".lock";
}

/// Opens the file for this run alone.
/// \returns null while another run has it
/// \throws Failure
Handle tryToLock(const std::wstring& file, const std::wstring& store) {
    // It stays when it is closed: to remove it would make a second one of it for those who wait.
    const HANDLE opened = CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened != INVALID_HANDLE_VALUE)
        return Handle(opened);
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION)
        throw notLocked(store, file + L": " + systemErrorText(error));
    return nullptr;
}

} // namespace

StoreLock::StoreLock(const std::wstring& store, const Interruption& interruption,
                     const Output& output) {
    const std::wstring file = lockFileOf(store);
    file_ = tryToLock(file, store);
    // A program that looks through all files may have had it open for a moment.
    for (int look = 1; !file_; ++look) {
        if (look == 2)
            output.note(L"waiting for another run of this program that changes the store \"" +
                        store + L"\"");
        if (interruption.waitFor(betweenLooks))
            throw Failure(ExitCode::incomplete, L"interrupted while another run changed the store "
                                                L"\"" +
                                                    store + L"\"; this one changed nothing");
        file_ = tryToLock(file, store);
    }
}

} // namespace updater
