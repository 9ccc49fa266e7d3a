// How fast a store takes certificates.
#include "storepace.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>

namespace testsupport {

namespace {

constexpr DWORD second = 1000;

HANDLE interrupted() {
    static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}

/// The thread on which the system calls the handlers.
std::atomic<HANDLE> handlers = nullptr;

BOOL WINAPI noteCtrlC(DWORD) {
    HANDLE thread = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread,
                    SYNCHRONIZE, FALSE, 0);
    handlers = thread;
    SetEvent(interrupted());
    return FALSE; // the program's own handler is next
}

// The handler that was added last is called first. When the thread that calls them has ended, the
// program's own has done its work.
void waitForCtrlC() {
    SetConsoleCtrlHandler(noteCtrlC, TRUE);
    WaitForSingleObject(interrupted(), INFINITE);
    SetConsoleCtrlHandler(noteCtrlC, FALSE);
    WaitForSingleObject(handlers, INFINITE);
    CloseHandle(handlers);
}

} // namespace

void keepPace() {
    static std::atomic<int> additions = 0;
    const int number = ++additions;
    if (number == 1 && std::getenv("CSU_SLOW_STORE"))
        Sleep(second);
    const char* waitsAt = std::getenv("CSU_STORE_WAITS_AT");
    if (waitsAt && number == std::atoi(waitsAt))
        waitForCtrlC();
}

} // namespace testsupport
