// A file that a test shares with a program that it runs.
#pragma once

#include "handle.h"

#include <string>
#include <string_view>

namespace testsupport {

/// A temporary file that two processes share as a standard stream. Unlike the ends of a pipe, it
/// makes neither of them wait for the other. It is gone when both have closed it.
class SharedFile {
public:
    /// \throws std::runtime_error if it cannot be made
    SharedFile();

    /// Inheritable.
    HANDLE handle() const { return file_.get(); }

    /// Writes what the other process then reads from the beginning.
    /// \throws std::runtime_error
    void write(std::string_view text) const;
    /// Everything that has been written so far.
    std::string read() const;

private:
    void rewind() const;

    Handle file_;
};

} // namespace testsupport
