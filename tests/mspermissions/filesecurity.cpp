// The DACLs of files, as tests set them, read them and see the library read and write them.
#include "filesecurity.h"

#include "runningonwine.h"
#include "temporaryfolder.h"

#include <cstring>
#include <fstream>
#include <system_error>

namespace mspermissions_test {

namespace {

[[noreturn]] void throwLastError(const char* function) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), function);
}

Bytes realDescriptor(const wchar_t* path) {
    DWORD size = 0;
    GetFileSecurityW(path, DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    Bytes bytes(size);
    if (!GetFileSecurityW(path, DACL_SECURITY_INFORMATION, bytes.data(), size, &size))
        throwLastError("GetFileSecurityW");
    return bytes;
}

/// Tried with a file: whether what is granted to all application packages is still there
/// afterwards.
bool tryToKeepADacl() {
    const testsupport::TemporaryFolder folder("certstoreupdater DACLs");
    const std::filesystem::path file = folder.path() / "file";
    std::ofstream(file) << "contents";
    Bytes granted = descriptors::fromSddl(L"D:(A;;FR;;;AC)(A;;FA;;;WD)");
    return SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, granted.data()) &&
           descriptors::toSddl(realDescriptor(file.c_str()).data()).find(L";AC)") !=
               std::wstring::npos;
}

} // namespace

bool filesKeepDacls() {
    static const bool answer = !testsupport::runningOnWine() || tryToKeepADacl();
    return answer;
}

HMODULE library() {
    return GetModuleHandleW(L"certstoreupdater.dll");
}

FileSecurity::FileSecurity() {
    getHook_.replace([this](auto... arguments) { return get(arguments...); });
    setHook_.replace([this](auto... arguments) { return set(arguments...); });
}

const Bytes* FileSecurity::kept(const wchar_t* path) const {
    if (kept_.empty() || GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES)
        return nullptr;
    const auto found = kept_.find(EntryId(path));
    return found == kept_.end() ? nullptr : &found->second;
}

BOOL FileSecurity::get(LPCWSTR path, SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR buffer,
                       DWORD size, LPDWORD needed) {
    if (size == 0)
        reads_.emplace_back(path);
    const Bytes* bytes = kept(path);
    if (!bytes)
        return getHook_.original(path, information, buffer, size, needed);
    *needed = static_cast<DWORD>(bytes->size());
    if (size < bytes->size()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, bytes->data(), bytes->size());
    return TRUE;
}

BOOL FileSecurity::set(LPCWSTR path, SECURITY_INFORMATION information,
                       PSECURITY_DESCRIPTOR descriptor) {
    const std::wstring name = path;
    writes_.push_back(
        {name, information, descriptors::toSddl(descriptor), descriptors::aclBytes(descriptor)});
    const bool keep = !filesKeepDacls() || kept(path);
    if (!keep || GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) {
        if (!setHook_.original(path, information, descriptor))
            return FALSE;
    } else {
        Bytes bytes = descriptors::daclOnly(descriptor);
        descriptors::mapGenericRights(bytes);
        kept_[EntryId(path)] = bytes;
    }
    if (afterWrite_)
        afterWrite_(name);
    return TRUE;
}

void FileSecurity::setDacl(const std::filesystem::path& path, const std::wstring& sddl) {
    Bytes bytes = descriptors::fromSddl(sddl);
    descriptors::mapGenericRights(bytes);
    if (!filesKeepDacls())
        kept_[EntryId(path.native())] = bytes;
    else if (!SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, bytes.data()))
        throwLastError("SetFileSecurityW");
}

void FileSecurity::setDescriptor(const std::filesystem::path& path, const Bytes& descriptor) {
    kept_[EntryId(path.native())] = descriptor;
}

Bytes FileSecurity::descriptor(const std::filesystem::path& path) {
    const Bytes* bytes = kept(path.c_str());
    return bytes ? *bytes : realDescriptor(path.c_str());
}

std::wstring FileSecurity::dacl(const std::filesystem::path& path) {
    Bytes bytes = descriptor(path);
    descriptors::mapGenericRights(bytes);
    return descriptors::toSddl(bytes.data());
}

std::vector<std::wstring> FileSecurity::writtenPaths() const {
    std::vector<std::wstring> paths;
    for (const Write& write : writes_)
        paths.push_back(write.path);
    return paths;
}

void FileSecurity::forgetCalls() {
    reads_.clear();
    writes_.clear();
}

} // namespace mspermissions_test
