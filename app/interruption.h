// Ctrl-C, and whatever else asks a console program to end.
#pragma once

#include <chrono>

namespace updater {

/// For as long as the object lives, Ctrl-C, Ctrl-Break and the closing of the console do not end
/// the process at once, but ask it to end in order; a second Ctrl-C ends it at once. One object at
/// a time. Logging off and shutting down end it at once: the system does not ask a console program
/// that uses user32, as shell32 does.
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
};

} // namespace updater
