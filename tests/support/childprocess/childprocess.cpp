// Runs a Windows program as a child and gathers what it says.
#include "childprocess.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <type_traits>

namespace testsupport {

namespace {

struct CloseAnyHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseAnyHandle>;

/// A pipe of which the child gets one end.
struct Pipe {
    Handle readEnd;
    Handle writeEnd;

    Pipe() {
        SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
        HANDLE ends[2] = {};
        if (!CreatePipe(&ends[0], &ends[1], &inheritable, 0))
            throw std::runtime_error("no pipe");
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
    }
};

void keepToOurselves(const Handle& handle) {
    SetHandleInformation(handle.get(), HANDLE_FLAG_INHERIT, 0);
}

std::string readAll(const Handle& pipe) {
    std::string text;
    std::array<char, 4096> chunk{};
    DWORD count = 0;
    while (ReadFile(pipe.get(), chunk.data(), static_cast<DWORD>(chunk.size()), &count, nullptr) &&
           count != 0)
        text.append(chunk.data(), count);
    return text;
}

/// A child that ends without reading is no error.
void writeAll(const Handle& pipe, std::string_view text) {
    DWORD written = 0;
    while (!text.empty() &&
           WriteFile(pipe.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr))
        text.remove_prefix(written);
}

} // namespace

std::wstring folderOfThisProgram() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

ChildResult runChild(std::wstring commandLine, const std::string& input) {
    Pipe standardInput;
    Pipe standardOutput;
    Pipe standardError;
    keepToOurselves(standardInput.writeEnd);
    keepToOurselves(standardOutput.readEnd);
    keepToOurselves(standardError.readEnd);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = standardInput.readEnd.get();
    startup.hStdOutput = standardOutput.writeEnd.get();
    startup.hStdError = standardError.writeEnd.get();
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &started))
        throw std::runtime_error("a program cannot be started");
    const Handle process(started.hProcess);
    const Handle mainThread(started.hThread);
    standardInput.readEnd.reset();
    standardOutput.writeEnd.reset();
    standardError.writeEnd.reset();

    ChildResult result{};
    std::thread errorReader([&] { result.errors = readAll(standardError.readEnd); });
    std::thread inputWriter([&] {
        writeAll(standardInput.writeEnd, input);
        standardInput.writeEnd.reset();
    });
    result.output = readAll(standardOutput.readEnd);
    inputWriter.join();
    errorReader.join();
    WaitForSingleObject(process.get(), INFINITE);
    GetExitCodeProcess(process.get(), &result.exitCode);
    return result;
}

} // namespace testsupport
