// Scripting the fake token in a process that is not the test's own.
#pragma once

#include "faketoken.h"

namespace faketoken {

/// The control as the script file says that the environment variable FAKETOKEN_SCRIPT names, and
/// as new without one. Ends the process, with a message, if the file cannot be read or understood.
Control scriptedControl();

/// Writes a call that was answered to the file that the script's `record` names, if there is one.
void recordToFile(const Call& call);

} // namespace faketoken
