// Runs the updater program, unmodified, in a process of its own.
#include "updaterprogram.h"

#include "launch.h"

namespace testsupport {

namespace {

constexpr wchar_t updater[] = L"certstoreupdate.exe";

} // namespace

Outcome runProgram(const std::wstring& fileName, const Start& start) {
    const SharedFile input;
    const SharedFile output;
    const SharedFile errors;
    input.write(start.input);
    const Handle process =
        launch(fileName, start, input.handle(), output.handle(), errors.handle(), DETACHED_PROCESS);
    try {
        waitForEndOf(process.get());
    } catch (...) {
        TerminateProcess(process.get(), 1);
        throw;
    }
    return {exitCodeOf(process.get()), withoutCarriageReturns(output.read()),
            withoutCarriageReturns(errors.read())};
}

Outcome runUpdater(const Start& start) {
    return runProgram(updater, start);
}

RunningUpdater::RunningUpdater(const Start& start) : RunningProgram(updater, start) {}

} // namespace testsupport
