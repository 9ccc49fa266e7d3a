// One run at a time changes a store.
#pragma once

#include "files.h"
#include "interruption.h"
#include "output.h"

#include <string>

namespace updater {

/// While the object lives, other runs of this program by the same user wait before they change the
/// store. If a run is killed, the next one goes on. Other programs do not know of it.
class StoreLock {
public:
    /// Waits, and says so, while another run has the store.
    /// \throws Failure (store); Failure (incomplete) if the process is asked to end meanwhile
    StoreLock(const std::wstring& store, const Interruption& interruption, const Output& output);
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    ~StoreLock();

private:
    Handle mutex_;
};

} // namespace updater
