// The program's commands, a file each.
#pragma once

#include "commandline.h"
#include "failures.h"

namespace updater {

// Each writes its result to standard output and its complaints to standard error, and throws
// Failure where it cannot go on.
ExitCode showStatus(const Options& options);
ExitCode synchroniseStore(const Options& options);
ExitCode listRegistered(const Options& options);
ExitCode cleanStore(const Options& options);

} // namespace updater
