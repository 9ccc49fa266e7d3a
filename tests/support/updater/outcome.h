// What became of a program that a test ran.
#pragma once

#include <ostream>
#include <string>

namespace testsupport {

/// What became of a run.
struct Outcome {
    int exitCode = -1;
    std::string output; ///< standard output, UTF-8, with LF line ends
    std::string errors; ///< standard error, likewise
};

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "exit code " << outcome.exitCode << "\noutput:\n"
         << outcome.output << "errors:\n"
         << outcome.errors;
}

} // namespace testsupport
