// What another process writes, as it comes.
#pragma once

#include "handle.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace testsupport {

/// A pipe into which another process writes, read all the time.
class ReadPipe {
public:
    ReadPipe();
    ReadPipe(const ReadPipe&) = delete;
    ReadPipe& operator=(const ReadPipe&) = delete;
    /// The other end must be closed by then.
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
    /// Waits for the pipe's end.
    void finish();

private:
    void read();

    Handle readEnd_;
    Handle writeEnd_;
    mutable std::mutex mutex_;
    std::condition_variable grown_;
    std::string text_;
    bool ended_ = false;
    std::thread reader_;
};

} // namespace testsupport
