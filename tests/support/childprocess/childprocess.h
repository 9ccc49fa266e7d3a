// Starts Windows programs as children of a test, and waits no longer for them than is sensible.
#pragma once

#include "handle.h"

#include <string>

namespace testsupport {

/// How long a test waits for a program, in milliseconds. A run takes a few seconds at most; the
/// rest is for a busy machine.
inline constexpr DWORD patience = 300'000;

/// \throws std::runtime_error with the system's error unless it succeeded
void require(bool succeeded, const char* what);

/// Folder of this program with a backslash at its end: test programs and DLLs lie side by side.
std::wstring folderOfThisProgram();

struct StandardStreams {
    HANDLE input;
    HANDLE output;
    HANDLE errors;
};

/// Starts a program.
/// \param commandLine   the program, quoted if need be, and its arguments
/// \param streams       inheritable; the child also gets whatever else is inheritable at the time
/// \param creationFlags of CreateProcess
/// \param[out] processId if not null, the id of the process
/// \throws std::runtime_error if it cannot be started
Handle startChild(std::wstring commandLine, const StandardStreams& streams, DWORD creationFlags,
                  DWORD* processId = nullptr);

/// \returns whether the process has ended within so many milliseconds
bool endsWithin(DWORD milliseconds, HANDLE process);

/// The exit code of a process that has ended.
DWORD exitCodeOf(HANDLE process);

/// "WHAT: COMMAND LINE", and below it what the program said, for the message of a failed test.
std::string complaint(const std::string& what, const std::wstring& commandLine,
                      const std::string& output, const std::string& errors);

struct ChildResult {
    DWORD exitCode;
    std::string output;
    std::string errors;
};

/// Runs a program without a console to its end. A program that hangs is killed.
/// \param commandLine the program, quoted if need be, and its arguments
/// \param input       what it reads from standard input
/// \param limit       how long it may take, in milliseconds
/// \throws std::runtime_error if it cannot be started; if it does not end in time, with its command
///         line and all that it said
ChildResult runChild(const std::wstring& commandLine, const std::string& input = {},
                     DWORD limit = patience);

} // namespace testsupport
