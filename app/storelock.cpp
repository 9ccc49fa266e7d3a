// One run at a time changes a store.
#include "storelock.h"

#include "files.h"

#include <windows.h>

#include <sddl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace updater {

namespace {

Failure notLocked(const std::wstring& store, const wchar_t* function, DWORD error) {
    return {ExitCode::store, L"the store \"" + store +
                                 L"\" cannot be reserved for this run, and is unchanged: " +
                                 function + L": " + systemErrorText(error)};
}

/// The user's SID as text, or no text.
std::wstring userSid() {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened))
        return {};
    const Handle token(opened);
    DWORD size = 0;
    GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
    std::vector<std::byte> user(size);
    if (!GetTokenInformation(token.get(), TokenUser, user.data(), size, &size))
        return {};
    wchar_t* text = nullptr;
    if (!ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text))
        return {};
    const std::unique_ptr<wchar_t, decltype(&LocalFree)> owner(text, LocalFree);
    return text;
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

/// Of all the user's sessions on this machine, since they share the store.
std::wstring mutexName(const std::wstring& store) {
    return L"Global\\certstoreupdate-" + userSid() + L"-" + digest(store);
}

} // namespace

StoreLock::StoreLock(const std::wstring& store, const Interruption& interruption,
                     const Output& output)
    : mutex_(CreateMutexW(nullptr, FALSE, mutexName(store).c_str())) {
    if (!mutex_)
        throw notLocked(store, L"CreateMutex", GetLastError());
    DWORD answer = WaitForSingleObject(mutex_.get(), 0);
    if (answer == WAIT_TIMEOUT) {
        output.note(L"waiting for another run of this program that changes the store \"" + store +
                    L"\"");
        const HANDLE handles[] = {mutex_.get(), interruption.event()};
        answer = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    }
    if (answer == WAIT_OBJECT_0 + 1)
        throw Failure(ExitCode::incomplete, L"interrupted while another run changed the store \"" +
                                                store + L"\"; this one changed nothing");
    // An abandoned mutex is one whose run was killed; what that left behind is found and put right.
    if (answer != WAIT_OBJECT_0 && answer != WAIT_ABANDONED)
        throw notLocked(store, L"waiting", GetLastError());
}

StoreLock::~StoreLock() {
    ReleaseMutex(mutex_.get());
}

} // namespace updater
