// CreateProcess, tried again where Wine fails for no reason.
#pragma once

#include <windows.h>

namespace testsupport {

/// Calls `create`, which calls CreateProcess, until that gives another error than
/// ERROR_INTERNAL_ERROR, five times at most: on a busy machine Wine fails so once in thousands of
/// times.
template <class Create>
BOOL createProcess(Create create) {
    constexpr int tries = 5;
    BOOL isCreated = create();
    for (int again = 1; !isCreated && GetLastError() == ERROR_INTERNAL_ERROR && again != tries;
         ++again)
        isCreated = create();
    return isCreated;
}

} // namespace testsupport
