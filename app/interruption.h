// Ctrl-C, and whatever else asks a console program to end.
#pragma once

#include <chrono>

namespace updater {

/// For as long as the object lives, Ctrl-C, Ctrl-Break, the closing of the console, logging off and
/// shutting down do not end the process at once, but ask it to end in order. One object at a time.
class Interruption {
public:
    /// \throws std::system_error
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    bool isRequested() const noexcept { return waitFor(std::chrono::milliseconds(0)); }
    /// Waits until the time is over or the process is asked to end.
    /// \returns whether it is asked to end
    bool waitFor(std::chrono::milliseconds time) const noexcept;

    /// A kernel object (HANDLE) that is signalled once the process is asked to end; not owned.
    void* event() const noexcept;
};

} // namespace updater
