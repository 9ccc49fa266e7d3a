// certstoreupdate sync: changes what differs.
#include "commands.h"

#include "namechecks.h"
#include "update.h"

namespace updater {

void synchroniseStore(const Options& options, Output& output) {
    requireInstalledCsp(options, output);
    const ModuleFile module(options.module, options.signing);
    const TokenContents token = readToken(module, options.pin, options.selection.reading(), output);
    const Interruption interruption;
    if (!update(options, wantedOf(token, options.selection), interruption, output,
                output.member("sync")))
        output.fail({ExitCode::incomplete,
                     L"interrupted; what was done until then stays done, and sync does the rest "
                     L"when it is run again"});
}

} // namespace updater
