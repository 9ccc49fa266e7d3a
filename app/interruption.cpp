// Ctrl-C, and whatever else asks a console program to end.
#include "interruption.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <system_error>

namespace updater {

namespace {

// The system calls the handler on a thread of its own, which may still run when the object is
// gone: so what they share is never given back.
HANDLE requestedEvent() {
    static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}

std::atomic<bool> isRequestedAlready = false;

BOOL WINAPI request(DWORD kind) {
    // Whoever asks twice does not want to wait for a module or a store that does not answer.
    if (isRequestedAlready.exchange(true) && kind != CTRL_CLOSE_EVENT)
        return FALSE;
    SetEvent(requestedEvent());
    // Once the handler returns from this one, the system ends the process, so it waits for main to
    // do that in order; the system does not wait for ever.
    if (kind == CTRL_CLOSE_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

[[noreturn]] void throwSystemError(const char* function) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), function);
}

} // namespace

Interruption::Interruption() {
    if (!requestedEvent())
        throwSystemError("CreateEvent");
    ResetEvent(requestedEvent());
    isRequestedAlready = false;
    if (!SetConsoleCtrlHandler(request, TRUE))
        throwSystemError("SetConsoleCtrlHandler");
}

Interruption::~Interruption() {
    SetConsoleCtrlHandler(request, FALSE);
}

bool Interruption::waitFor(std::chrono::milliseconds time) const noexcept {
    constexpr std::int64_t longest = INFINITE - 1;
    const auto milliseconds =
        static_cast<DWORD>(std::clamp<std::int64_t>(time.count(), 0, longest));
    return WaitForSingleObject(requestedEvent(), milliseconds) == WAIT_OBJECT_0;
}

} // namespace updater
