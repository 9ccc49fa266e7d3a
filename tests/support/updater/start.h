// How a test starts a program.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace testsupport {

/// How a program is started.
struct Start {
    std::vector<std::wstring> arguments;
    /// What it reads from its standard input, which ends behind it.
    std::string input{};
    /// Added to the environment of this process.
    std::map<std::wstring, std::wstring> environment{};
};

} // namespace testsupport
