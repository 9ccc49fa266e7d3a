// How the programs under test are started: on Windows directly, under Wine through the launcher
// that gives them what Wine lacks.
#pragma once

#include "start.h"

#include <memory>
#include <string>
#include <vector>

namespace testsupport {

/// The command line that starts a program that lies beside the test program. Under Wine it is that
/// of a launcher, which ends with the program's exit code.
std::wstring commandLineOf(const std::wstring& fileName,
                           const std::vector<std::wstring>& arguments);

/// Variables that are added to the environment of this process, and of those that it starts, for as
/// long as the object lives.
class AddedEnvironment {
public:
    explicit AddedEnvironment(const std::map<std::wstring, std::wstring>& variables);
    ~AddedEnvironment();

private:
    class Variable;
    std::vector<std::unique_ptr<Variable>> variables_;
};

/// Text of a program with LF line ends.
std::string withoutCarriageReturns(std::string text);

} // namespace testsupport
