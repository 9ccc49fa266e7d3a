// certstoreupdate: keeps a certificate store in step with a token.
#include "commandline.h"
#include "commands.h"
#include "failures.h"
#include "output.h"
#include "text.h"

#include <windows.h>

#include <new>
#include <variant>

namespace {

using namespace updater;

void run(const Options& options, Output& output) {
    switch (options.command) {
    case Command::status:
        return showStatus(options, output);
    case Command::sync:
        return synchroniseStore(options, output);
    case Command::watch:
        return watchToken(options, output);
    case Command::list:
        return listRegistered(options, output);
    case Command::clean:
        return cleanStore(options, output);
    case Command::csps:
        return listCsps(options, output);
    case Command::verify:
        return verifyFiles(options, output);
    case Command::grant:
        return grantAccess(options, output);
    }
}

/// Calls `function`; whatever goes wrong is told to `output`.
/// \returns the exit code
template <class Function>
ExitCode withFailuresTold(Output& output, Function function) {
    const auto tell = [&](const Failure& failure) {
        output.fail(failure);
        return failure.code();
    };
    try {
        return function();
    } catch (const Failure& failure) {
        return tell(failure);
    } catch (const std::bad_alloc&) {
        return tell({ExitCode::unexpected, L"there is not enough memory"});
    } catch (const korv::GenericEvent& event) {
        return tell({ExitCode::unexpected, L"something unexpected happened", event});
    } catch (const std::exception& error) {
        return tell(
            {ExitCode::unexpected, L"something unexpected happened: " + toWide(error.what())});
    }
}

/// Does what `function` does and tells what came of it.
template <class Function>
ExitCode toItsEnd(Output output, Function function) {
    const ExitCode thrown = withFailuresTold(output, [&] {
        function(output);
        return ExitCode::done;
    });
    const ExitCode written = withFailuresTold(output, [&] { return output.finish(); });
    return written != ExitCode::done ? written : thrown;
}

ExitCode run(const std::vector<std::string>& arguments) {
    std::variant<Options, HelpText> request;
    try {
        request = parseCommandLine(arguments);
    } catch (const Failure& failure) {
        return toItsEnd(Output("", outputAskedFor(arguments)), [&](Output&) { throw failure; });
    }
    if (const auto* const help = std::get_if<HelpText>(&request))
        return Stream::standardOutput().write(help->text) ? ExitCode::done : ExitCode::unexpected;
    const Options& options = std::get<Options>(request);
    return toItsEnd(Output(nameOf(options.command), options.output),
                    [&](Output& output) { run(options, output); });
}

/// A module that cannot be loaded is told by the exit code, not by a dialog; and nothing is ever
/// loaded from the folder that happens to be the current one.
void preparePlatform() {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    SetDllDirectoryW(L"");
}

} // namespace

int main() {
    preparePlatform();
    try {
        return static_cast<int>(run(processArguments()));
    } catch (const std::exception&) {
        // Not even a message can be written.
        return static_cast<int>(ExitCode::unexpected);
    }
}
