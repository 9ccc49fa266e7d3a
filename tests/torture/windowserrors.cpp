// What the Windows functions that the library calls may answer when they fail.
#include "windowserrors.h"

#include <wincrypt.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

namespace torture {

namespace {

struct Row {
    std::string_view function;
    std::vector<DWORD> errors;
};

constexpr DWORD code(HRESULT result) {
    return static_cast<DWORD>(result);
}

// Left out, because nobody asks whether they failed: CertCloseStore, CertFreeCertificateContext,
// FreeSid, FreeLibrary, CloseHandle and SetThreadErrorMode give back what was taken;
// CertCreateCertificateContext passes on what it gives to the search that follows; EqualSid and
// GetLengthSid answer a question and have no way to fail on a valid SID. What Boost.Filesystem
// calls through pointers (GetFileInformationByHandleEx, NtQueryDirectoryFile) is no import.
const Row rows[] = {
    // Wincrypt.h. CertOpenSystemStoreW hands on the errors of CertOpenStore.
    {"CertOpenSystemStoreW",
     {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, code(E_INVALIDARG), code(CRYPT_E_FILE_ERROR),
      code(CRYPT_E_NOT_FOUND)}},
    {"CertEnumCertificatesInStore",
     {code(CRYPT_E_NOT_FOUND), ERROR_NO_MORE_FILES, code(E_INVALIDARG)}},
    {"CertFindCertificateInStore", {code(CRYPT_E_NOT_FOUND), code(E_INVALIDARG)}},
    // Refused by the user, present, refused by the system, or not understood.
    {"CertAddEncodedCertificateToStore",
     {ERROR_CANCELLED, code(CRYPT_E_EXISTS), code(E_INVALIDARG), code(E_ACCESSDENIED),
      code(CRYPT_E_OSS_ERROR), code(CRYPT_E_ASN1_BADTAG)}},
    {"CertDeleteCertificateFromStore",
     {ERROR_CANCELLED, code(E_ACCESSDENIED), ERROR_ACCESS_DENIED}},
    {"CertDuplicateCertificateContext", {ERROR_SUCCESS}},
    {"CertCompareCertificate", {ERROR_SUCCESS}},
    {"CertGetCertificateContextProperty", {code(CRYPT_E_NOT_FOUND), ERROR_MORE_DATA}},
    {"CertSetCertificateContextProperty", {code(E_INVALIDARG), code(E_ACCESSDENIED)}},

    // Securitybaseapi.h
    {"AllocateAndInitializeSid", {ERROR_INVALID_PARAMETER, ERROR_NOT_ENOUGH_MEMORY}},
    {"GetFileSecurityW",
     {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_SHARING_VIOLATION}},
    {"SetFileSecurityW",
     {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_INVALID_SECURITY_DESCR,
      ERROR_PRIVILEGE_NOT_HELD}},
    {"GetSecurityDescriptorDacl", {ERROR_INVALID_SECURITY_DESCR, ERROR_UNKNOWN_REVISION}},
    {"SetSecurityDescriptorDacl", {ERROR_INVALID_SECURITY_DESCR, ERROR_UNKNOWN_REVISION}},
    {"InitializeSecurityDescriptor", {ERROR_UNKNOWN_REVISION}},
    {"InitializeAcl", {ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER}},
    {"IsValidAcl", {ERROR_SUCCESS, ERROR_INVALID_ACL}},
    {"GetAclInformation", {ERROR_INVALID_PARAMETER, ERROR_INSUFFICIENT_BUFFER}},
    {"GetAce", {ERROR_INVALID_PARAMETER}},
    {"AddAce", {ERROR_INVALID_PARAMETER, ERROR_ALLOTTED_SPACE_EXCEEDED, ERROR_INVALID_ACL}},
    {"AddAccessAllowedAceEx",
     {ERROR_ALLOTTED_SPACE_EXCEEDED, ERROR_INVALID_ACL, ERROR_INVALID_FLAGS, ERROR_INVALID_SID,
      ERROR_REVISION_MISMATCH}},

    // Wincrypt.h, in advapi32
    {"CryptEnumProvidersW",
     {ERROR_MORE_DATA, ERROR_NO_MORE_ITEMS, ERROR_NOT_ENOUGH_MEMORY, code(NTE_BAD_FLAGS),
      code(NTE_FAIL)}},

    // Libloaderapi.h
    {"LoadLibraryExW",
     {ERROR_MOD_NOT_FOUND, ERROR_BAD_EXE_FORMAT, ERROR_ACCESS_DENIED, ERROR_DLL_INIT_FAILED}},
    {"GetProcAddress", {ERROR_PROC_NOT_FOUND}},
    {"GetModuleFileNameW", {ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_ENOUGH_MEMORY}},
    // Stringapiset.h
    {"MultiByteToWideChar",
     {ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_FLAGS, ERROR_INVALID_PARAMETER,
      ERROR_NO_UNICODE_TRANSLATION}},
    // Sysinfoapi.h
    {"GetSystemDirectoryW", {ERROR_NOT_ENOUGH_MEMORY}},
    // Fileapi.h
    {"GetFullPathNameW", {ERROR_INVALID_NAME, ERROR_NOT_ENOUGH_MEMORY}},
    {"GetFileAttributesW", {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED}},
    {"CreateFileW",
     {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION,
      ERROR_TOO_MANY_OPEN_FILES}},
    {"GetFileInformationByHandle", {ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED}},
};

} // namespace

const std::vector<DWORD>& documentedErrors(std::string_view function) {
    const auto* row = std::find_if(std::begin(rows), std::end(rows), [&](const Row& candidate) {
        return candidate.function == function;
    });
    if (row == std::end(rows))
        throw std::invalid_argument("no errors are known of " + std::string(function));
    return row->errors;
}

} // namespace torture
