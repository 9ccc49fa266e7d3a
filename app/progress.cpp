// How far the program is.
#include "progress.h"

#include <iostream>

namespace updater {

Progress::Progress(const Output& output, std::size_t steps)
    : isShown_(output.showsProgress()), steps_(steps) {}

Progress::~Progress() {
    if (bar_ && done_ != steps_)
        std::cerr << std::endl;
}

void Progress::advance() {
    if (done_ == steps_)
        return;
    ++done_;
    if (bar_) {
        ++*bar_;
        return;
    }
    // A bar that appears with its end is no help.
    if (!isShown_ || done_ == steps_ || Clock::now() - start_ < moment)
        return;
    bar_.emplace(static_cast<unsigned long>(steps_), std::cerr, "");
    *bar_ += static_cast<unsigned long>(done_);
}

} // namespace updater
