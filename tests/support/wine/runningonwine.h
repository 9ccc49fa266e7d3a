// Tells Wine from Windows.
#pragma once

#include <windows.h>

namespace testsupport {

/// For tests of what Wine does not do; each of them says what that is.
inline bool runningOnWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

} // namespace testsupport
