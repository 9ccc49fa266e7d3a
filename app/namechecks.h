// Names of CSPs and stores that are probably not meant.
#pragma once

#include "commandline.h"
#include "output.h"

namespace updater {

/// Warns of a CSP that is not installed, and of a store that has almost the name of one of
/// Windows's own: a store that does not exist is created when it is opened.
void warnOfMistypedNames(const Options& options, Output& output);

/// The same for a command that registers certificates: it must not register them for a CSP that is
/// not installed, unless that is meant (`Options::allowMissingCsp`).
/// \throws Failure (usage)
void requireInstalledCsp(const Options& options, Output& output);

} // namespace updater
