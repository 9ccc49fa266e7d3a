// One run at a time changes a store.
#pragma once

#include "files.h"
#include "interruption.h"
#include "output.h"

#include <string>

namespace updater {

/// While the object lives, other runs of this program by the same user wait before they change the
/// store. If a run is killed, the next one goes on. Other programs do not know of it.
///
/// It is an empty file in the folder of the user's local application data, held open by one run at
/// a time: no other user can take it, and a run with more rights shares it with one that has
/// fewer. The letter case of a store's name does not count.
class StoreLock {
public:
    /// Waits, and says so, while another run has the store.
    /// \throws Failure (store); Failure (incomplete) if the process is asked to end meanwhile
    StoreLock(const std::wstring& store, const Interruption& interruption, const Output& output);

private:
    Handle file_;
};

} // namespace updater
