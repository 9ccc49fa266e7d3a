// How fast a store takes certificates: for tests of a program that shows its progress, or is
// interrupted.
#pragma once

namespace testsupport {

/// To be called before each addition to a store. The first one of a process takes a second if the
/// variable CSU_SLOW_STORE is set. The one whose number the variable CSU_STORE_WAITS_AT has does
/// not go on before the process has dealt with a Ctrl-C.
void keepPace();

} // namespace testsupport
