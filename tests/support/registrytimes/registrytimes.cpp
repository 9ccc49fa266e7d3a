// When a store was last written to.
#include "registrytimes.h"

#include <windows.h>

#include <array>
#include <stdexcept>

namespace testsupport {

namespace {

using Times = std::map<std::wstring, std::uint64_t>;

void require(LSTATUS status) {
    if (status != ERROR_SUCCESS)
        throw std::runtime_error("the registry answered " + std::to_string(status));
}

class Key {
public:
    Key(HKEY parent, const std::wstring& path) {
        require(RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, &key_));
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { RegCloseKey(key_); }
    HKEY get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

void addTimes(const Key& key, const std::wstring& path, Times& times) {
    FILETIME time{};
    DWORD children = 0;
    require(RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &children, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, &time));
    times[path] = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    for (DWORD child = 0; child != children; ++child) {
        std::array<wchar_t, 256> name{};
        auto size = static_cast<DWORD>(name.size());
        require(RegEnumKeyExW(key.get(), child, name.data(), &size, nullptr, nullptr, nullptr,
                              nullptr));
        addTimes(Key(key.get(), name.data()), path + L"\\" + name.data(), times);
    }
}

} // namespace

Times registryTimesOf(const std::wstring& store) {
    Times times;
    addTimes(Key(HKEY_CURRENT_USER, L"Software\\Microsoft\\SystemCertificates\\" + store), L"",
             times);
    return times;
}

} // namespace testsupport
