// A program under test while it runs.
#include "runningprogram.h"

#include "childprocess.h"
#include "launch.h"
#include "sharedfile.h"

#include <tlhelp32.h>

#include <cwchar>
#include <stdexcept>

namespace testsupport {

namespace {

/// The process that another one started from a file of that name, or 0.
DWORD childOf(DWORD parent, const std::wstring& fileName) {
    const Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL found = Process32FirstW(snapshot.get(), &entry); found;
         found = Process32NextW(snapshot.get(), &entry))
        if (entry.th32ParentProcessID == parent && _wcsicmp(entry.szExeFile, fileName.c_str()) == 0)
            return entry.th32ProcessID;
    return 0;
}

/// A job whose processes end with its last handle, so with this process at the latest, however
/// that ends.
Handle makeJob() {
    Handle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    require(SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits,
                                    sizeof limits) != 0,
            "SetInformationJobObject");
    return job;
}

} // namespace

RunningProgram::RunningProgram(const std::wstring& fileName, const Start& start)
    : fileName_(fileName), commandLine_(commandLineOf(fileName, start.arguments)), job_(makeJob()) {
    const SharedFile input;
    input.write(start.input);
    // A process that ignores Ctrl-C passes that on to those that it starts.
    SetConsoleCtrlHandler(nullptr, FALSE);
    const AddedEnvironment environment(start.environment);
    process_ = startChild(commandLine_, {input.handle(), output_.writeEnd(), errors_.writeEnd()},
                          CREATE_NO_WINDOW, &processId_);
    require(AssignProcessToJobObject(job_.get(), process_.get()) || endsWithin(0, process_.get()),
            "AssignProcessToJobObject");
    output_.begin();
    errors_.begin();
}

RunningProgram::~RunningProgram() {
    kill();
    endsWithin(patience, process_.get());
}

std::string RunningProgram::waitForOutput(std::string_view text, std::size_t times) {
    return waitFor(output_, text, times);
}

std::string RunningProgram::waitForErrors(std::string_view text, std::size_t times) {
    return waitFor(errors_, text, times);
}

std::string RunningProgram::waitFor(ReadPipe& stream, std::string_view text, std::size_t times) {
    if (!stream.waitFor(text, times))
        complain("the program does not say \"" + std::string(text) + '"');
    return stream.text();
}

void RunningProgram::interrupt() {
    if (const DWORD error = runChild(L'"' + folderOfThisProgram() + L"pressctrlc.exe\" " +
                                     std::to_wstring(processId_))
                                .exitCode)
        complain("Ctrl-C cannot be sent (error " + std::to_string(error) + ")");
}

void RunningProgram::kill() {
    if (const DWORD program = childOf(processId_, fileName_)) {
        const Handle process(OpenProcess(PROCESS_TERMINATE, FALSE, program));
        if (process && TerminateProcess(process.get(), killedExitCode))
            return;
    }
    // It is the program itself, or has not started it yet and then never will.
    TerminateProcess(process_.get(), killedExitCode);
}

Outcome RunningProgram::waitForEnd() {
    if (!endsWithin(patience, process_.get()))
        complain("the program does not end");
    if (!output_.waitForEnd() || !errors_.waitForEnd())
        complain("another process keeps the program's output open");
    return {static_cast<int>(exitCodeOf(process_.get())), output(), errors()};
}

void RunningProgram::complain(const std::string& what) const {
    throw std::runtime_error(complaint(what, commandLine_, output(), errors()));
}

} // namespace testsupport
