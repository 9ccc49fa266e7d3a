// The command line.
#pragma once

#include "pin.h"

#include <string>
#include <variant>
#include <vector>

namespace updater {

enum class Command { status, sync, list, clean };

struct Options {
    Command command = Command::status;
    std::wstring module{}; ///< of status and sync
    std::wstring csp{};
    std::wstring store = L"MY";
    PinSource pin{}; ///< of status and sync
};

/// Text that was asked for by --help.
struct HelpText {
    std::wstring text;
};

/// \param arguments in UTF-8, without the program's name
/// \throws Failure (usage)
std::variant<Options, HelpText> parseCommandLine(const std::vector<std::string>& arguments);

/// The arguments that this process was started with.
std::vector<std::string> processArguments();

} // namespace updater
