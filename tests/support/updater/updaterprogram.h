// Runs the updater program, unmodified, in a process of its own: on Windows directly, under Wine
// with what Wine lacks.
#pragma once

#include "outcome.h"
#include "runningprogram.h"
#include "start.h"

namespace testsupport {

/// Runs a program that lies beside the test program, without a console, and waits for its end.
/// \throws std::runtime_error if it cannot be started; with its command line if it does not end
Outcome runProgram(const std::wstring& fileName, const Start& start);

/// Runs certstoreupdate.exe likewise.
Outcome runUpdater(const Start& start);

/// What this system lets a program end with that does nothing about Ctrl-C: STATUS_CONTROL_C_EXIT
/// on Windows (Microsoft, SetConsoleCtrlHandler: the default handler calls ExitProcess; the code is
/// in ntstatus.h), another in older versions of Wine. \throws std::runtime_error if watched.exe
/// cannot be started or interrupted
int exitCodeOfUnhandledCtrlC();

/// certstoreupdate.exe while it runs.
class RunningUpdater : public RunningProgram {
public:
    /// \throws std::runtime_error if it cannot be started
    explicit RunningUpdater(const Start& start);
};

} // namespace testsupport
