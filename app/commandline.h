// The command line.
#pragma once

#include "modulefile.h"
#include "output.h"
#include "pin.h"
#include "selection.h"

#include <chrono>
#include <string>
#include <variant>
#include <vector>

namespace updater {

enum class Command { status, sync, watch, list, clean, csps, verify, grant };

/// What the command line says. Members that a command has no option for keep their defaults.
struct Options {
    Command command = Command::status;
    OutputOptions output{};

    std::wstring csp{};           ///< of list: empty for all that are installed
    bool allowMissingCsp = false; ///< of sync and watch
    std::wstring store = L"MY";

    std::wstring module{};
    ModuleFile::Signing signing = ModuleFile::Signing::required;
    PinSource pin{};
    Selection selection{};

    bool dryRun = false;                      ///< of sync and clean
    bool exitCode = false;                    ///< of status and sync: whether something differs
    std::chrono::milliseconds interval{2000}; ///< of watch: from one look at the token to the next
    bool cleanWhenGone = false;               ///< of watch

    std::vector<std::wstring> paths{}; ///< of verify and grant
    bool recursive = false;            ///< of grant
};

/// Text that was asked for by --help or --version.
struct HelpText {
    std::wstring text;
};

/// \param arguments in UTF-8, without the program's name
/// \throws Failure (usage)
std::variant<Options, HelpText> parseCommandLine(const std::vector<std::string>& arguments);

/// How a complaint about arguments that cannot be parsed is to be written, as far as they say.
OutputOptions outputAskedFor(const std::vector<std::string>& arguments);

/// The name of a command.
const char* nameOf(Command command);

/// The arguments that this process was started with.
std::vector<std::string> processArguments();

} // namespace updater
