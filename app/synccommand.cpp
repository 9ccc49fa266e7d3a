// certstoreupdate sync: changes what differs.
#include "commands.h"

#include "csps.h"
#include "update.h"

namespace updater {

void synchroniseStore(const Options& options, Output& output) {
    warnUnlessInstalled(options.csp, output);
    const ModuleFile module(options.module, options.signing);
    const TokenContents token = readToken(module, options.pin, options.selection.reading(), output);
    const Interruption interruption;
    update(options, wantedOf(token, options.selection), interruption, output,
           output.member("sync"));
}

} // namespace updater
