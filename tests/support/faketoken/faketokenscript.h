// Scripting the fake token in a process that is not the test's own.
#pragma once

#include "faketoken.h"

namespace faketoken {

/// The control as scripted by the file that the environment variable FAKETOKEN_SCRIPT names; a new
/// one if there is no such variable. Ends the process, with a message, if the file cannot be read
/// or understood.
Control scriptedControl();

/// Appends a call that was answered to the file that the script's `record` names, if it names one.
void recordToFile(const Call& call);

} // namespace faketoken
