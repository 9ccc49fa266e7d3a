// Checks that a file is signed by somebody whom Windows trusts.
#include "codeverifier.h"

#include "certstoreupdatererror.h"
#include "makeevent.h"

#include <windows.h>

#include <softpub.h>
#include <wintrust.h>

#include <cstddef>

namespace pkcs11::certstoreupdater {

namespace {

constexpr wchar_t sourceFile[] = L"src\\codeverifier.cpp";

constexpr DWORD fileInfoSize = 32;
static_assert(sizeof(WINTRUST_FILE_INFO) == fileInfoSize);

// Without the pointer to signature settings that newer headers have at the end.
constexpr DWORD trustDataSize = 80;
static_assert(offsetof(WINTRUST_DATA, dwUIContext) + sizeof(WINTRUST_DATA::dwUIContext) ==
              trustDataSize);

} // namespace

void CodeVerifier::verify(Buffer<wchar_t>& path) {
    WINTRUST_FILE_INFO file{};
    file.cbStruct = fileInfoSize;
    file.pcwszFilePath = path.c_str();

    WINTRUST_DATA trust{};
    trust.cbStruct = trustDataSize;
    trust.dwUIChoice = WTD_UI_NONE;
    trust.fdwRevocationChecks = WTD_REVOKE_NONE;
    trust.dwUnionChoice = WTD_CHOICE_FILE;
    trust.pFile = &file;
    trust.dwStateAction = WTD_STATEACTION_VERIFY;

    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const LONG result = WinVerifyTrust(nullptr, &action, &trust);

    // The first call leaves state data behind even when it fails.
    trust.dwStateAction = WTD_STATEACTION_CLOSE;
    WinVerifyTrust(nullptr, &action, &trust);

    if (result != ERROR_SUCCESS)
        throw korv::makeEvent<CertStoreUpdaterError_InvalidFileSignature>(sourceFile);
}

} // namespace pkcs11::certstoreupdater
