// Removes what is ours from a store.
#pragma once

#include "commandline.h"
#include "interruption.h"
#include "output.h"

namespace updater {

/// Tells what `clean` would remove.
/// \returns the same for programs
/// \throws Failure
Json wouldClean(const Options& options, Output& output);

/// Removes what is registered for the CSP and tells what was done.
/// \returns the same for programs
/// \throws Failure
Json clean(const Options& options, const Interruption& interruption, Output& output);

} // namespace updater
