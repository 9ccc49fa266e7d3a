// Programs that are watched, interrupted and killed while they run.
#include "childprocess.h"
#include "runningonwine.h"
#include "updaterprogram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace testsupport {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr wchar_t watched[] = L"watched.exe";

/// The process that a program says it is.
Handle processOf(RunningProgram& program) {
    const std::string said = program.waitForOutput(" is ready\n");
    Handle process(OpenProcess(SYNCHRONIZE, FALSE, std::strtoul(said.c_str(), nullptr, 10)));
    EXPECT_TRUE(process);
    return process;
}

TEST(RunningProgram, GetsArgumentsEnvironmentAndInput) {
    RunningProgram program(watched,
                           {{L"echo", L"a b", L""}, "first\nsecond\n", {{L"WATCHED", L"value"}}});
    const Outcome outcome = program.waitForEnd();
    EXPECT_EQ(outcome.output, "[a b]\n[]\nvalue\nfirst\nsecond\n");
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.exitCode, 3);
}

TEST(RunningProgram, IsHeardWhileItRuns) {
    RunningProgram program(watched, {{L"wait", L"1"}});
    EXPECT_EQ(program.waitForErrors("waiting"), "waiting\n");
    const Handle process = processOf(program);
    EXPECT_EQ(WaitForSingleObject(process.get(), 0), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(program.errors(), "waiting\n");
}

TEST(RunningProgram, IsInterruptedAsByCtrlC) {
    RunningProgram program(watched, {{L"wait", L"2"}});
    program.waitForOutput(" is ready\n");
    program.interrupt();
    program.waitForOutput("Ctrl-C\n");
    program.interrupt();
    program.waitForOutput("Ctrl-C\n", 2);
    EXPECT_EQ(program.waitForEnd().exitCode, 7);
}

TEST(RunningProgram, IsInterruptedAlone) {
    RunningProgram one(watched, {{L"wait", L"1"}});
    RunningProgram other(watched, {{L"wait", L"1"}});
    one.waitForOutput(" is ready\n");
    other.waitForOutput(" is ready\n");
    one.interrupt();
    EXPECT_EQ(one.waitForEnd().exitCode, 7);
    EXPECT_THAT(other.output(), testing::Not(HasSubstr("Ctrl-C")));
    other.interrupt();
    EXPECT_EQ(other.waitForEnd().exitCode, 7);
}

TEST(RunningProgram, IsEndedByACtrlCThatItDoesNothingAbout) {
    if (runningOnWine())
        EXPECT_THAT(exitCodeOfUnhandledCtrlC(), AnyOf(0, static_cast<int>(STATUS_CONTROL_C_EXIT)));
    else
        EXPECT_EQ(exitCodeOfUnhandledCtrlC(), static_cast<int>(STATUS_CONTROL_C_EXIT));
}

TEST(RunningProgram, IsKilledItself) {
    RunningProgram program(watched, {{L"wait", L"1"}});
    const Handle process = processOf(program);
    program.kill();
    EXPECT_EQ(program.waitForEnd().exitCode, RunningProgram::killedExitCode);
    EXPECT_EQ(WaitForSingleObject(process.get(), 0), DWORD{WAIT_OBJECT_0});
}

TEST(RunningProgram, KeepsItsExitCodeIfItIsKilledAfterItsEnd) {
    RunningProgram program(watched, {{L"echo"}});
    EXPECT_EQ(program.waitForEnd().exitCode, 3);
    program.kill();
    EXPECT_EQ(program.waitForEnd().exitCode, 3);
}

TEST(RunningProgram, EndsWithItsObject) {
    Handle process;
    {
        RunningProgram program(watched, {{L"wait", L"1"}});
        process = processOf(program);
    }
    EXPECT_EQ(WaitForSingleObject(process.get(), 0), DWORD{WAIT_OBJECT_0});
}

TEST(RunningProgram, TellsAllItSaidWhenItEndsWithoutWhatIsWaitedFor) {
    RunningProgram program(watched, {{L"echo", L"something"}});
    EXPECT_THAT(
        [&] { program.waitForOutput("more"); },
        ThrowsMessage<std::runtime_error>(AllOf(StartsWith("the program does not say \"more\": "),
                                                HasSubstr("watched.exe\" \"echo\" \"something\"\n"),
                                                HasSubstr("\noutput:\n[something]\n"))));
    EXPECT_THROW(program.waitForOutput("something", 2), std::runtime_error);
    EXPECT_EQ(program.waitForOutput("something"), "[something]\n\n");
}

TEST(RunningProgram, CannotBeInterruptedAfterItsEnd) {
    RunningProgram program(watched, {{L"echo"}});
    program.waitForEnd();
    EXPECT_THROW(program.interrupt(), std::runtime_error);
}

TEST(Child, ThatDoesNotEndInTimeIsNamedByItsCommandLine) {
    const std::wstring commandLine = L'"' + folderOfThisProgram() + watched + L"\" wait 1";
    EXPECT_THAT([&] { runChild(commandLine, "", 1); },
                ThrowsMessage<std::runtime_error>(AllOf(StartsWith("the program does not end: \""),
                                                        HasSubstr("watched.exe\" wait 1\n"))));
}

TEST(RunningUpdater, RunsTheUpdater) {
    RunningUpdater program({{L"--help"}});
    program.waitForOutput("certstoreupdate");
    EXPECT_EQ(program.waitForEnd().exitCode, 0);
}

} // namespace
} // namespace testsupport
