// A program under test while it runs.
#pragma once

#include "handle.h"
#include "outcome.h"
#include "readpipe.h"
#include "start.h"

#include <string>
#include <string_view>

namespace testsupport {

/// A program that lies beside the test program, as a user starts it in a console, which has no
/// window here. Its standard streams do not lead to the console. Ends with this object.
class RunningProgram {
public:
    /// \throws std::runtime_error if it cannot be started
    RunningProgram(const std::wstring& fileName, const Start& start);
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;
    ~RunningProgram();

    /// What it wrote so far, UTF-8, with LF line ends.
    std::string output() const { return output_.text(); }
    std::string errors() const { return errors_.text(); }

    /// Waits until standard output or standard error contains a text, so many times if it is said
    /// again and again.
    /// \returns all that it wrote there so far
    /// \throws std::runtime_error with its command line and all that it wrote if it ends without
    ///         that, or too much time passes
    std::string waitForOutput(std::string_view text, std::size_t times = 1);
    std::string waitForErrors(std::string_view text, std::size_t times = 1);

    /// Has it receive Ctrl-C. Before that, wait for something that it says once it is ready to:
    /// it is killed by what it does not handle.
    /// \throws std::runtime_error if Ctrl-C cannot be sent, as to a program that has ended
    void interrupt();

    /// The exit code of a program that was killed.
    static constexpr int killedExitCode = 999;
    /// Ends the program itself, not only its launcher, without giving it a chance to do anything.
    /// Does nothing to one that has ended.
    void kill();

    /// \returns its exit code and all that it wrote; of a program that was killed too
    /// \throws std::runtime_error with its command line and all that it wrote if it does not end
    Outcome waitForEnd();

private:
    std::string waitFor(ReadPipe& stream, std::string_view text, std::size_t times);
    [[noreturn]] void complain(const std::string& what) const;

    std::wstring fileName_;
    std::wstring commandLine_;
    ReadPipe output_;
    ReadPipe errors_;
    DWORD processId_ = 0; ///< of the process that was started: the program's or its launcher's
    Handle job_;
    Handle process_;
};

} // namespace testsupport
