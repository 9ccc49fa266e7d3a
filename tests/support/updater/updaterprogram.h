// Runs the updater program, unmodified, in a process of its own: on Windows directly, under Wine
// with what Wine lacks.
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

/// What became of a run.
struct Outcome {
    int exitCode = -1;
    std::string output; ///< standard output, UTF-8, with LF line ends
    std::string errors; ///< standard error, likewise
};
void PrintTo(const Outcome& outcome, std::ostream* out);

/// How the program is started.
struct Start {
    std::vector<std::wstring> arguments;
    /// What it reads from its standard input, which ends behind it.
    std::string input{};
    /// Added to the environment of this process.
    std::map<std::wstring, std::wstring> environment{};
};

/// Runs certstoreupdate.exe, which lies beside the test program, without a console, and waits for
/// its end.
/// \throws std::runtime_error if it cannot be started or does not end
Outcome runUpdater(const Start& start);

} // namespace testsupport
