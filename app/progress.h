// How far the program is.
#pragma once

#include "output.h"

#include <boost/timer/progress_display.hpp>

#include <chrono>
#include <cstddef>
#include <optional>

namespace updater {

/// A bar on standard error, if that is a console, for work that takes longer than a moment. While
/// the object lives, nothing else may be written there.
class Progress {
public:
    /// \param steps how many there are; more of them are not shown
    Progress(const Output& output, std::size_t steps);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Ends the line of a bar that was not filled.
    ~Progress();

    /// One more step is done.
    void advance();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds moment{700};

    bool isShown_;
    std::size_t steps_;
    std::size_t done_ = 0;
    Clock::time_point start_ = Clock::now();
    std::optional<boost::timer::progress_display> bar_;
};

} // namespace updater
