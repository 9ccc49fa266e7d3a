// Runs a Windows program as a child and gathers what it says.
#pragma once

#include <windows.h>

#include <string>

namespace testsupport {

struct ChildResult {
    DWORD exitCode;
    std::string output;
    std::string errors;
};

/// Folder of this program with a backslash at its end: test programs and DLLs lie side by side.
std::wstring folderOfThisProgram();

/// Runs a program to its end.
/// \param commandLine the program, quoted if need be, and its arguments
/// \param input       what it reads from standard input
/// \throws std::runtime_error if it cannot be started
ChildResult runChild(std::wstring commandLine, const std::string& input = {});

} // namespace testsupport
