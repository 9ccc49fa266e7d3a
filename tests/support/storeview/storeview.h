// System stores of the current user as any program sees them through CryptoAPI: for tests to
// prepare and to look at, in their own process and in another one. Nothing here uses the library.
#pragma once

#include <windows.h>

#include <wincrypt.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;

constexpr DWORD korvaneCspRefId = 54086;

/// A CRYPT_KEY_PROV_INFO by value. Without a name its pointer is null.
struct KeyProvInfo {
    std::optional<std::wstring> container;
    std::optional<std::wstring> provider;
    DWORD type = PROV_RSA_FULL;
    DWORD flags = 0;
    DWORD parameterCount = 0;
    DWORD keySpec = AT_KEYEXCHANGE;

    static KeyProvInfo of(const CRYPT_KEY_PROV_INFO& info);
    friend bool operator==(const KeyProvInfo&, const KeyProvInfo&) = default;
};
void PrintTo(const KeyProvInfo& info, std::ostream* out);

/// A certificate in a store, with the properties that matter here as they are stored.
struct StoreEntry {
    Bytes encoded;
    std::optional<KeyProvInfo> keyProvInfo;
    std::optional<Bytes> friendlyName;
    std::optional<Bytes> korvaneCspRef;

    friend bool operator==(const StoreEntry&, const StoreEntry&) = default;
};
void PrintTo(const StoreEntry& entry, std::ostream* out);

/// A friendly name as it is stored: UTF-16 and a terminating zero.
Bytes friendlyNameBytes(const std::wstring& name);

/// Reads a store, opened anew.
std::vector<StoreEntry> readStore(const std::wstring& name);
/// The same, read by the program storetool.exe, which lies beside this one.
std::vector<StoreEntry> readStoreInOtherProcess(const std::wstring& name);

/// Adds a certificate with its properties to a store, opened anew.
/// \throws std::runtime_error, here and below, if that fails
void addToStore(const std::wstring& name, const StoreEntry& entry);
/// The same, done by the program storetool.exe.
void addToStoreInOtherProcess(const std::wstring& name, const StoreEntry& entry);

/// Removes a certificate from a store, opened anew.
void removeFromStore(const std::wstring& name, const Bytes& encoded);

/// Removes a store with all that is in it.
void eraseStore(const std::wstring& name);

/// A store of a name that no other test uses, gone after the test.
class TestStore {
public:
    TestStore();
    TestStore(const TestStore&) = delete;
    TestStore& operator=(const TestStore&) = delete;
    ~TestStore() { eraseStore(name_); }

    const std::wstring& name() const noexcept { return name_; }
    std::vector<StoreEntry> entries() const { return readStore(name_); }
    void add(const StoreEntry& entry) const { addToStore(name_, entry); }
    void remove(const Bytes& encoded) const { removeFromStore(name_, encoded); }

private:
    std::wstring name_;
};

/// An entry as one line of ASCII text, and back.
/// \throws std::exception for a line that `toLine` does not write
std::string toLine(const StoreEntry& entry);
StoreEntry fromLine(const std::string& line);

} // namespace testsupport
