// certstoreupdate: keeps a certificate store in step with a token.
#include "commandline.h"
#include "commands.h"
#include "failures.h"
#include "output.h"
#include "text.h"

#include <windows.h>

#include <new>

namespace {

using namespace updater;

ExitCode run(const Options& options) {
    switch (options.command) {
    case Command::status:
        return showStatus(options);
    case Command::sync:
        return synchroniseStore(options);
    case Command::list:
        return listRegistered(options);
    case Command::clean:
        return cleanStore(options);
    }
    return ExitCode::unexpected;
}

ExitCode run() {
    const auto request = parseCommandLine(processArguments());
    if (const auto* help = std::get_if<HelpText>(&request)) {
        writeData(help->text);
        return ExitCode::done;
    }
    return run(std::get<Options>(request));
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
    const Utf8Console console;
    ExitCode code = ExitCode::unexpected;
    try {
        code = run();
    } catch (const Failure& failure) {
        writeMessage(failure.line());
        code = failure.code();
    } catch (const std::bad_alloc&) {
        writeMessage(L"there is not enough memory");
    } catch (const std::exception& error) {
        writeMessage(L"something unexpected happened: " + toWide(error.what()));
    }
    return static_cast<int>(code);
}
