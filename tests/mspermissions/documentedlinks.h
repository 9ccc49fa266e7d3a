// Links as Windows documents them, for a module that runs where links are not seen.
#pragma once

#include "entryid.h"
#include "importhook.h"

#include <windows.h>

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace mspermissions_test {

/// Shows a module links as such for as long as it exists: as reparse points with the tag of
/// symbolic links, when it opens them as such (FILE_FLAG_OPEN_REPARSE_POINT) or lists the directory
/// that they are in. What a link leads to is found as before.
///
/// Wine follows the links of the Unix side and shows what they lead to in their place. What is
/// answered here is what Microsoft documents: "Symbolic Link Effects on File Systems Functions",
/// FILE_ATTRIBUTE_TAG_INFO, and [MS-FSCC] 2.4 on EaSize. On Windows this object does nothing.
class DocumentedLinks {
public:
    /// \param module which imports CreateFileW and CloseHandle, and imports
    ///   GetFileInformationByHandleEx or has a pointer to it
    /// \param links paths of the links
    DocumentedLinks(HMODULE module, const std::vector<std::filesystem::path>& links);

private:
    using Information = decltype(GetFileInformationByHandleEx);

    HANDLE open(LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                DWORD disposition, DWORD flags, HANDLE pattern);
    BOOL information(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID answer, DWORD size);
    bool isLink(const EntryId& entry) const { return links_.contains(entry); }
    template <class Entry>
    void markLinks(HANDLE directory, void* listing) const;

    std::set<EntryId> links_;
    std::map<HANDLE, DWORD> opened_; ///< links that are open as such, and their attributes
    std::unique_ptr<testsupport::ImportHook<decltype(CreateFileW)>> createFile_;
    std::unique_ptr<testsupport::ImportHook<decltype(CloseHandle)>> closeHandle_;
    std::unique_ptr<testsupport::ImportHook<Information>> information_;
};

} // namespace mspermissions_test
