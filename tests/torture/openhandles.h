// The handles that this process has open.
#pragma once

#include "runningonwine.h"

#include <windows.h>

namespace torture {

/// Their number, to be compared with a later one. Windows opens and closes handles in a process as
/// it likes, so there it is always 0.
inline DWORD openHandles() {
    DWORD count = 0;
    if (testsupport::runningOnWine())
        GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
}

} // namespace torture
