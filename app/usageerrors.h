// What is wrong with a command line, in words.
#pragma once

#include "failures.h"

#include <CLI/CLI.hpp>

#include <string>

namespace updater {

/// \param complaint what is wrong, without a full stop
/// \param command   the command whose help tells more, or empty
Failure usageError(const std::wstring& complaint, const std::string& command = "");

/// What was wrong for the parser. No value is repeated, since it may be a PIN.
Failure usageError(const CLI::ParseError& error, const CLI::App& app);

} // namespace updater
