// pressctrlc PROCESS: what Ctrl-C in the console of a process does: all processes of that console
// receive it. A process of its own, since a process has one console at most. Ends with 0 or with
// the system's error.
#include <windows.h>

#include <cstdlib>

int main(int count, char** arguments) {
    if (count != 2)
        return ERROR_INVALID_PARAMETER;
    FreeConsole();
    if (!AttachConsole(std::strtoul(arguments[1], nullptr, 10)))
        return static_cast<int>(GetLastError());
    // Now it is meant for this process too.
    SetConsoleCtrlHandler(nullptr, TRUE);
    return GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) ? 0 : static_cast<int>(GetLastError());
}
