// certstoreupdate clean: removes what is ours.
#include "commands.h"

#include "cleaning.h"
#include "csps.h"

namespace updater {

void cleanStore(const Options& options, Output& output) {
    warnUnlessInstalled(options.csp, output);
    output.member("clean") = clean(options, output);
}

} // namespace updater
