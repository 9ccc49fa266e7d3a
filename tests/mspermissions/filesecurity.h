// The DACLs of files, as tests set them, read them and see the library read and write them.
#pragma once

#include "descriptors.h"
#include "entryid.h"
#include "importhook.h"

#include <windows.h>

#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace mspermissions_test {

using descriptors::Bytes;

/// Whether this system keeps the DACLs of files as they are set: Windows does, Wine is asked.
bool filesKeepDacls();

/// The module whose imports are redirected.
HMODULE library();

/// Redirects one of the library's security functions.
template <class Function>
class SecurityHook : public testsupport::ImportHook<Function> {
public:
    explicit SecurityHook(const char* function, testsupport::CallLog* log = nullptr)
        : testsupport::ImportHook<Function>(library(), "advapi32.dll", function, log) {}
};

/// Records what the library reads and writes through GetFileSecurityW and SetFileSecurityW for as
/// long as it exists.
///
/// On Windows the calls go on to the system. Wine keeps of a DACL only what Unix permissions can
/// say; where it does so, this object keeps the DACLs of existing files, with generic rights mapped
/// as file systems map them; the DACL that a file has at first and all errors are Wine's. A link
/// has a DACL of its own, since both functions act on a link itself (Microsoft, "Symbolic Link
/// Effects on File Systems Functions").
class FileSecurity {
public:
    FileSecurity();

    struct Write {
        std::wstring path;
        SECURITY_INFORMATION information;
        std::wstring sddl;
        Bytes acl;
    };

    /// Gives a file or directory the DACL of this text.
    void setDacl(const std::filesystem::path& path, const std::wstring& sddl);
    /// From now on the file's descriptor are these bytes, right or wrong, on Windows as well, until
    /// the library writes another.
    void setDescriptor(const std::filesystem::path& path, const Bytes& descriptor);
    /// The text of a file's DACL. Generic rights are shown as those of files.
    std::wstring dacl(const std::filesystem::path& path);
    /// What the file system has, or what was set last.
    Bytes descriptor(const std::filesystem::path& path);

    /// Called with the path after each successful write.
    void afterWrite(std::function<void(const std::wstring&)> action) {
        afterWrite_ = std::move(action);
    }

    /// The paths of those calls of GetFileSecurityW that ask how long the descriptor is.
    const std::vector<std::wstring>& reads() const { return reads_; }
    const std::vector<Write>& writes() const { return writes_; }
    std::vector<std::wstring> writtenPaths() const;
    void forgetCalls();

private:
    const Bytes* kept(const wchar_t* path) const;
    BOOL get(LPCWSTR path, SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR buffer,
             DWORD size, LPDWORD needed);
    BOOL set(LPCWSTR path, SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor);

    std::map<EntryId, Bytes> kept_;
    std::vector<std::wstring> reads_;
    std::vector<Write> writes_;
    std::function<void(const std::wstring&)> afterWrite_;
    SecurityHook<decltype(GetFileSecurityW)> getHook_{"GetFileSecurityW"};
    SecurityHook<decltype(SetFileSecurityW)> setHook_{"SetFileSecurityW"};
};

inline void PrintTo(const FileSecurity::Write& write, std::ostream* out) {
    *out << std::filesystem::path(write.path) << ' ' << std::filesystem::path(write.sddl);
}

} // namespace mspermissions_test
