// What another process writes, as it comes.
#pragma once

#include "handle.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace testsupport {

/// A pipe into which another process writes, and which is read all the time.
class ReadPipe {
public:
    ReadPipe();
    ~ReadPipe();

    /// Inheritable, for the process that writes.
    HANDLE writeEnd() const { return writeEnd_.get(); }
    /// To be called once that process is started: gives up this process's writing end and reads.
    void begin();

    /// All so far, with LF line ends.
    std::string text() const;
    /// Waits until it contains a text so many times.
    /// \returns whether it does; false if the pipe has ended or patience has
    bool waitFor(std::string_view text, std::size_t times);
    /// Waits for the pipe's end, which comes when every process that inherited the writing end has
    /// closed it.
    /// \returns false if patience has ended first
    bool waitForEnd();

private:
    class Reading;

    Handle writeEnd_;
    /// Shared with the thread that reads, which may be left behind with a pipe that has no end.
    std::shared_ptr<Reading> reading_;
};

} // namespace testsupport
