// Starts Windows programs as children of a test, and waits no longer for them than is sensible.
#include "childprocess.h"

#include "createprocess.h"
#include "sharedfile.h"

#include <stdexcept>

namespace testsupport {

namespace {

std::string toUtf8(const std::wstring& text) {
    const int size = static_cast<int>(text.size());
    std::string utf8(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), size,
                                                                  nullptr, 0, nullptr, nullptr)),
                     '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, utf8.data(), static_cast<int>(utf8.size()),
                        nullptr, nullptr);
    return utf8;
}

} // namespace

void require(bool succeeded, const char* what) {
    if (!succeeded)
        throw std::runtime_error(std::string(what) + " failed with error " +
                                 std::to_string(GetLastError()));
}

std::wstring folderOfThisProgram() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

Handle startChild(std::wstring commandLine, const StandardStreams& streams, DWORD creationFlags,
                  DWORD* processId) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = streams.input;
    startup.hStdOutput = streams.output;
    startup.hStdError = streams.errors;
    PROCESS_INFORMATION started{};
    require(createProcess([&] {
                return CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE,
                                      creationFlags, nullptr, nullptr, &startup, &started);
            }) != 0,
            "starting a program");
    CloseHandle(started.hThread);
    if (processId)
        *processId = started.dwProcessId;
    return Handle(started.hProcess);
}

bool endsWithin(DWORD milliseconds, HANDLE process) {
    return WaitForSingleObject(process, milliseconds) == WAIT_OBJECT_0;
}

DWORD exitCodeOf(HANDLE process) {
    DWORD exitCode = 0;
    require(GetExitCodeProcess(process, &exitCode) != 0, "GetExitCodeProcess");
    return exitCode;
}

std::string complaint(const std::string& what, const std::wstring& commandLine,
                      const std::string& output, const std::string& errors) {
    return what + ": " + toUtf8(commandLine) + "\noutput:\n" + output + "errors:\n" + errors;
}

ChildResult runChild(const std::wstring& commandLine, const std::string& input, DWORD limit) {
    // Files, because the end of a pipe comes only once every process that inherited it has ended.
    const SharedFile standardInput;
    const SharedFile standardOutput;
    const SharedFile standardError;
    standardInput.write(input);
    const Handle process = startChild(
        commandLine, {standardInput.handle(), standardOutput.handle(), standardError.handle()},
        DETACHED_PROCESS);
    if (!endsWithin(limit, process.get())) {
        TerminateProcess(process.get(), 1);
        throw std::runtime_error(complaint("the program does not end", commandLine,
                                           standardOutput.read(), standardError.read()));
    }
    return {exitCodeOf(process.get()), standardOutput.read(), standardError.read()};
}

} // namespace testsupport
