// winecompat-launcher PROGRAM [ARGUMENT...]: runs a program with winecompat.dll in it.
//
// The program starts suspended, and a thread in it loads the DLL before its first instruction:
// that thread makes Windows load the program's own DLLs first, so their imports are there to be
// redirected. Standard streams, arguments and exit code are the program's. If it cannot be
// started, a message goes to standard error and the exit code is 125.
#include "createprocess.h"

#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

constexpr int cannotStart = 125;

class Failure : public std::runtime_error {
public:
    explicit Failure(const char* what)
        : std::runtime_error(std::string(what) + " (error " + std::to_string(GetLastError()) +
                             ")") {}
};

class Handle {
public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Handle& operator=(Handle&&) = delete;
    ~Handle() {
        if (handle_)
            CloseHandle(handle_);
    }
    HANDLE get() const { return handle_; }

private:
    HANDLE handle_;
};

/// The rest of this process's command line as it was written, so that the program parses its
/// arguments itself.
wchar_t* commandLineOfProgram() {
    wchar_t* rest = GetCommandLineW();
    const wchar_t end = *rest == L'"' ? *rest++ : L' ';
    while (*rest && *rest != end)
        ++rest;
    if (*rest == L'"')
        ++rest;
    while (*rest == L' ' || *rest == L'\t')
        ++rest;
    return rest;
}

std::wstring layerPath() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    path.resize(path.find_last_of(L'\\') + 1);
    return path + L"winecompat.dll";
}

HANDLE inheritable(DWORD standardHandle) {
    const HANDLE handle = GetStdHandle(standardHandle);
    SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    return handle;
}

bool hasConsole() {
    return GetConsoleCP() != 0;
}

struct Program {
    Handle process;
    Handle mainThread;
};

Program startSuspended(wchar_t* commandLine) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inheritable(STD_INPUT_HANDLE);
    startup.hStdOutput = inheritable(STD_OUTPUT_HANDLE);
    startup.hStdError = inheritable(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started{};
    // Whoever starts the launcher without a console wants none for the program either; Windows
    // would make one, and Wine a process that serves it and inherits the streams.
    const DWORD creationFlags = CREATE_SUSPENDED | (hasConsole() ? 0 : DETACHED_PROCESS);
    if (!testsupport::createProcess([&] {
            return CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, creationFlags,
                                  nullptr, nullptr, &startup, &started);
        }))
        throw Failure("the program cannot be started");
    return {Handle(started.hProcess), Handle(started.hThread)};
}

/// The program ends when the job's last handle is closed, so with this process at the latest.
void bindLifetime(HANDLE process, HANDLE job) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits) ||
        !AssignProcessToJobObject(job, process))
        throw Failure("the program cannot be bound to the launcher");
}

void loadInto(HANDLE process, const std::wstring& dll) {
    const SIZE_T size = (dll.size() + 1) * sizeof(wchar_t);
    void* path = VirtualAllocEx(process, nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (!path || !WriteProcessMemory(process, path, dll.c_str(), size, nullptr))
        throw Failure("the program's memory cannot be written");
    // kernel32 lies at the same address in every process.
    const auto loadLibrary = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void (*)()>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW")));
    const Handle thread(CreateRemoteThread(process, nullptr, 0, loadLibrary, path, 0, nullptr));
    DWORD module = 0;
    if (!thread.get() || WaitForSingleObject(thread.get(), INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeThread(thread.get(), &module))
        throw Failure("no thread can be started in the program");
    if (module == 0)
        throw std::runtime_error("winecompat.dll does not load into the program");
    VirtualFreeEx(process, path, 0, MEM_RELEASE);
}

/// Ctrl-C and the like reach the program as well: it decides, the launcher waits.
BOOL WINAPI leaveToProgram(DWORD) {
    return TRUE;
}

void prepare(const Program& program, const Handle& job) {
    bindLifetime(program.process.get(), job.get());
    loadInto(program.process.get(), layerPath());
}

DWORD run(wchar_t* commandLine) {
    const Handle job(CreateJobObjectW(nullptr, nullptr));
    const Program program = startSuspended(commandLine);
    try {
        prepare(program, job);
    } catch (...) {
        TerminateProcess(program.process.get(), cannotStart);
        throw;
    }
    SetConsoleCtrlHandler(leaveToProgram, TRUE);
    ResumeThread(program.mainThread.get());
    WaitForSingleObject(program.process.get(), INFINITE);
    DWORD exitCode = cannotStart;
    GetExitCodeProcess(program.process.get(), &exitCode);
    return exitCode;
}

} // namespace

int main() {
    wchar_t* commandLine = commandLineOfProgram();
    if (!*commandLine) {
        std::fputs("usage: winecompat-launcher PROGRAM [ARGUMENT...]\n", stderr);
        return cannotStart;
    }
    try {
        return static_cast<int>(run(commandLine));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "winecompat-launcher: %s\n", error.what());
        return cannotStart;
    }
}
