// certstoreupdate clean: removes what is ours.
#include "commands.h"

#include "cleaning.h"
#include "namechecks.h"

namespace updater {

void cleanStore(const Options& options, Output& output) {
    warnOfMistypedNames(options, output);
    if (options.dryRun) {
        output.member("clean") = wouldClean(options, output);
        return;
    }
    const Interruption interruption;
    output.member("clean") = clean(options, interruption, output);
}

} // namespace updater
