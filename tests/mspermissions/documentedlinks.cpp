// Links as Windows documents them, for a module that runs where links are not seen.
#include "documentedlinks.h"

#include "runningonwine.h"

#include <string_view>

namespace mspermissions_test {

namespace {

constexpr char kernel32[] = "kernel32.dll";
constexpr char informationFunction[] = "GetFileInformationByHandleEx";

testsupport::ImportSlot informationSlot(HMODULE module) {
    using testsupport::ImportSlot;
    return ImportSlot::exists(module, kernel32, informationFunction)
               ? ImportSlot(module, kernel32, informationFunction)
               : ImportSlot::ofPointers(module, kernel32, informationFunction);
}

} // namespace

DocumentedLinks::DocumentedLinks(HMODULE module, const std::vector<std::filesystem::path>& links) {
    if (!testsupport::runningOnWine())
        return;
    for (const std::filesystem::path& link : links)
        links_.emplace(link.native());
    createFile_ = std::make_unique<testsupport::ImportHook<decltype(CreateFileW)>>(module, kernel32,
                                                                                   "CreateFileW");
    createFile_->replace([this](auto... arguments) { return open(arguments...); });
    closeHandle_ = std::make_unique<testsupport::ImportHook<decltype(CloseHandle)>>(
        module, kernel32, "CloseHandle");
    closeHandle_->replace([this](HANDLE handle) {
        opened_.erase(handle);
        return closeHandle_->original(handle);
    });
    information_ = std::make_unique<testsupport::ImportHook<Information>>(informationSlot(module),
                                                                          informationFunction);
    information_->replace([this](auto... arguments) { return information(arguments...); });
}

HANDLE DocumentedLinks::open(LPCWSTR path, DWORD access, DWORD sharing,
                             LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                             HANDLE pattern) {
    const HANDLE file =
        createFile_->original(path, access, sharing, security, disposition, flags, pattern);
    if (file == INVALID_HANDLE_VALUE || !(flags & FILE_FLAG_OPEN_REPARSE_POINT) ||
        !isLink(EntryId(path)))
        return file;
    // Of a link the attributes tell what it leads to, too.
    opened_[file] =
        FILE_ATTRIBUTE_REPARSE_POINT | (GetFileAttributesW(path) & DWORD{FILE_ATTRIBUTE_DIRECTORY});
    return file;
}

BOOL DocumentedLinks::information(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID answer,
                                  DWORD size) {
    if (!information_->original(file, kind, answer, size))
        return FALSE;
    switch (kind) {
    case FileAttributeTagInfo:
        if (const auto link = opened_.find(file); link != opened_.end())
            *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(answer) = {link->second, IO_REPARSE_TAG_SYMLINK};
        break;
    case FileIdBothDirectoryInfo:
    case FileIdBothDirectoryRestartInfo:
        markLinks<FILE_ID_BOTH_DIR_INFO>(file, answer);
        break;
    case FileFullDirectoryInfo:
    case FileFullDirectoryRestartInfo:
        markLinks<FILE_FULL_DIR_INFO>(file, answer);
        break;
    case FileIdExtdDirectoryInfo:
    case FileIdExtdDirectoryRestartInfo:
        markLinks<FILE_ID_EXTD_DIR_INFO>(file, answer);
        break;
    default:
        break;
    }
    return TRUE;
}

template <class Entry>
void DocumentedLinks::markLinks(HANDLE directory, void* listing) const {
    for (auto* at = static_cast<unsigned char*>(listing);;) {
        auto* entry = reinterpret_cast<Entry*>(at);
        const std::wstring_view name(&entry->FileName[0], entry->FileNameLength / sizeof(wchar_t));
        if (isLink(EntryId(directory, name))) {
            entry->FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            if constexpr (requires { entry->ReparsePointTag; })
                entry->ReparsePointTag = IO_REPARSE_TAG_SYMLINK;
            else
                entry->EaSize = IO_REPARSE_TAG_SYMLINK;
        }
        if (entry->NextEntryOffset == 0)
            return;
        at += entry->NextEntryOffset;
    }
}

} // namespace mspermissions_test
