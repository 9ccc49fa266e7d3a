// A cryptographic service provider that is installed for the length of a test.
#include "installedcsp.h"

#include <windows.h>

#include <wincrypt.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace testsupport {

namespace {

/// A value that marks the keys that were made here; others are left alone.
constexpr wchar_t mark[] = L"InstalledForTests";

struct CloseAnyHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseAnyHandle>;

struct CloseKey {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

/// Lets one process at a time look who uses a provider and act on it.
class Turn {
public:
    Turn() : mutex_(CreateMutexW(nullptr, FALSE, L"certstoreupdater installed CSPs")) {
        if (!mutex_)
            throw std::runtime_error("no mutex can be made");
        // It is also ours if a process that had it has crashed.
        WaitForSingleObject(mutex_.get(), INFINITE);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { ReleaseMutex(mutex_.get()); }

private:
    Handle mutex_;
};

std::wstring keyOf(const std::wstring& csp) {
    return L"Software\\Microsoft\\Cryptography\\Defaults\\Provider\\" + csp;
}

/// The name of the event that exists while the provider is used: a hash, because a provider's name
/// may be longer than that of a kernel object.
std::wstring useOf(const std::wstring& csp) {
    return L"certstoreupdater CSP " + std::to_wstring(std::hash<std::wstring>()(csp));
}

Handle use(const std::wstring& csp) {
    Handle event(CreateEventW(nullptr, TRUE, FALSE, useOf(csp).c_str()));
    if (!event)
        throw std::runtime_error("the use of a CSP cannot be announced");
    return event;
}

bool isUsed(const std::wstring& csp) {
    return Handle(OpenEventW(SYNCHRONIZE, FALSE, useOf(csp).c_str())) != nullptr;
}

bool isMarked(const std::wstring& csp) {
    return RegGetValueW(HKEY_LOCAL_MACHINE, keyOf(csp).c_str(), mark, RRF_RT_REG_DWORD, nullptr,
                        nullptr, nullptr) == ERROR_SUCCESS;
}

bool set(const Key& key, const wchar_t* value, DWORD number) {
    return RegSetValueExW(key.get(), value, 0, REG_DWORD,
                          static_cast<const BYTE*>(static_cast<const void*>(&number)),
                          sizeof number) == ERROR_SUCCESS;
}

void install(const std::wstring& csp) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    // Volatile: a provider that a crash leaves behind is gone when Windows starts again.
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyOf(csp).c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                        KEY_SET_VALUE, nullptr, &key, &disposition) != ERROR_SUCCESS)
        throw std::runtime_error("no CSP can be installed");
    const Key owner(key);
    if (disposition == REG_CREATED_NEW_KEY &&
        !(set(owner, mark, 1) && set(owner, L"Type", PROV_RSA_FULL)))
        throw std::runtime_error("a CSP cannot be installed completely");
}

} // namespace

InstalledCsp::InstalledCsp(const std::wstring& name) : name_(name), use_(nullptr) {
    const Turn turn;
    Handle event = use(name_);
    install(name_);
    use_ = event.release();
}

InstalledCsp::~InstalledCsp() {
    const Turn turn;
    CloseHandle(use_);
    if (!isUsed(name_) && isMarked(name_))
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyOf(name_).c_str());
}

} // namespace testsupport
