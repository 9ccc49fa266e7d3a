// Brings the store into step and tells what was done.
#pragma once

#include "commandline.h"
#include "interruption.h"
#include "output.h"
#include "registry.h"

namespace updater {

/// Synchronises the store with what belongs there, or only tells what that would change, and
/// reports changes and problems, also if it ends early.
/// \param result  gets the same for programs
/// \returns whether it went to its end: false if the process was asked to end meanwhile
/// \throws Failure
bool update(const Options& options, const WantedMap& wanted, const Interruption& interruption,
            Output& output, Json& result);

} // namespace updater
