// Runs the updater program, unmodified, in a process of its own.
#include "updaterprogram.h"

#include "childprocess.h"
#include "launch.h"

namespace testsupport {

namespace {

constexpr wchar_t updater[] = L"certstoreupdate.exe";

} // namespace

Outcome runProgram(const std::wstring& fileName, const Start& start) {
    const AddedEnvironment environment(start.environment);
    const ChildResult result = runChild(commandLineOf(fileName, start.arguments), start.input);
    return {static_cast<int>(result.exitCode), withoutCarriageReturns(result.output),
            withoutCarriageReturns(result.errors)};
}

Outcome runUpdater(const Start& start) {
    return runProgram(updater, start);
}

int exitCodeOfUnhandledCtrlC() {
    RunningProgram program(L"watched.exe", {{L"hang"}});
    program.waitForOutput(" is ready\n");
    program.interrupt();
    return program.waitForEnd().exitCode;
}

RunningUpdater::RunningUpdater(const Start& start) : RunningProgram(updater, start) {}

} // namespace testsupport
