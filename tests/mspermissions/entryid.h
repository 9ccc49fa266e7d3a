// Entries of directories, links told from what they lead to.
#pragma once

#include <windows.h>

#include <compare>
#include <string>
#include <string_view>

namespace mspermissions_test {

/// An entry of a directory: the directory whatever path or link leads to it, and the entry's own
/// name, which is not followed. A link has another EntryId than what it leads to.
class EntryId {
public:
    /// The entry that a path names. Its directory must exist, the entry itself need not.
    /// \throws std::system_error if the directory cannot be opened
    explicit EntryId(const std::wstring& path);
    /// The entry of this name in an open directory.
    EntryId(HANDLE directory, std::wstring_view name);

    auto operator<=>(const EntryId&) const = default;

private:
    DWORD volume_ = 0;
    DWORD high_ = 0;
    DWORD low_ = 0;
    std::wstring name_; ///< in capital letters; empty for the root of a volume
};

} // namespace mspermissions_test
