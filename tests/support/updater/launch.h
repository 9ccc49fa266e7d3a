// How the programs under test are started: on Windows directly, under Wine through the launcher
// that gives them what Wine lacks.
#pragma once

#include "handle.h"
#include "start.h"

#include <string>
#include <string_view>

namespace testsupport {

/// How long a test waits for a program, in milliseconds; a run takes a fraction of a second.
inline constexpr DWORD patience = 120'000;

/// \throws std::runtime_error with the system's error unless it succeeded
void require(bool succeeded, const char* what);

/// A file that two processes share, gone when it is closed: neither of them ever waits for the
/// other, as both ends of a pipe may.
class SharedFile {
public:
    SharedFile();

    /// Inheritable.
    HANDLE handle() const { return file_.get(); }

    /// Whoever shares the file reads the text from its beginning.
    void write(std::string_view text) const;
    std::string read() const;

private:
    void rewind() const;

    Handle file_;
};

/// Starts a program that lies beside the test program, with its standard streams, its arguments
/// and its environment. What it inherits is what is inheritable at the time.
/// \param creationFlags of CreateProcess
/// \param[out] processId if not null, the id of the process that was started
/// \returns the process that was started: the program or, under Wine, its launcher, which ends
///          with the program's exit code
/// \throws std::runtime_error if it cannot be started
Handle launch(const std::wstring& fileName, const Start& start, HANDLE input, HANDLE output,
              HANDLE errors, DWORD creationFlags, DWORD* processId = nullptr);

/// \throws std::runtime_error if the process does not end within a test's patience
void waitForEndOf(HANDLE process);
int exitCodeOf(HANDLE process);

/// Text of a program with LF line ends.
std::string withoutCarriageReturns(std::string text);

} // namespace testsupport
