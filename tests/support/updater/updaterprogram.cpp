// Runs the updater program, unmodified, in a process of its own.
#include "updaterprogram.h"

#include <windows.h>

#include <array>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <type_traits>

namespace testsupport {

namespace {

constexpr DWORD patience = 120'000; // milliseconds; a run takes a fraction of a second

struct CloseAnyHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseAnyHandle>;

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

bool isWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

/// An argument as CommandLineToArgvW takes it apart again.
std::wstring quoted(const std::wstring& argument) {
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t unit : argument) {
        if (unit == L'"')
            text.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        text += unit;
    }
    return text.append(backslashes, L'\\') + L"\"";
}

std::wstring commandLineOf(const std::vector<std::wstring>& arguments) {
    const std::wstring folder = folderOfThisProgram();
    std::wstring line = quoted(folder + L"certstoreupdate.exe");
    if (isWine())
        line = quoted(folder + L"winecompat-launcher.exe") + L" " + line;
    for (const std::wstring& argument : arguments)
        line += L" " + quoted(argument);
    return line;
}

/// A file that two processes share, gone when it is closed: neither of them ever waits for the
/// other, as both ends of a pipe may.
class SharedFile {
public:
    SharedFile() {
        std::array<wchar_t, MAX_PATH> folder{};
        std::array<wchar_t, MAX_PATH> name{};
        GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
        require(GetTempFileNameW(folder.data(), L"csu", 0, name.data()) != 0, "GetTempFileName");
        SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
        const HANDLE file = CreateFileW(
            name.data(), GENERIC_READ | GENERIC_WRITE,
            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable, CREATE_ALWAYS,
            FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        require(file != INVALID_HANDLE_VALUE, "CreateFile");
        file_.reset(file);
    }

    HANDLE handle() const { return file_.get(); }

    void write(std::string_view text) const {
        DWORD written = 0;
        require(WriteFile(handle(), text.data(), static_cast<DWORD>(text.size()), &written,
                          nullptr) != 0,
                "WriteFile");
        rewind();
    }

    std::string read() const {
        rewind();
        std::string text;
        std::array<char, 4096> chunk{};
        DWORD count = 0;
        while (
            ReadFile(handle(), chunk.data(), static_cast<DWORD>(chunk.size()), &count, nullptr) &&
            count != 0)
            text.append(chunk.data(), count);
        return text;
    }

private:
    void rewind() const { SetFilePointer(handle(), 0, nullptr, FILE_BEGIN); }

    Handle file_;
};

class EnvironmentVariable {
public:
    EnvironmentVariable(const std::wstring& name, const std::wstring& value) : name_(name) {
        std::wstring before(32768, L'\0');
        const DWORD size = GetEnvironmentVariableW(name_.c_str(), before.data(),
                                                   static_cast<DWORD>(before.size()));
        if (size != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND)
            before_ = before.substr(0, size);
        SetEnvironmentVariableW(name_.c_str(), value.c_str());
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() {
        SetEnvironmentVariableW(name_.c_str(), before_ ? before_->c_str() : nullptr);
    }

private:
    std::wstring name_;
    std::optional<std::wstring> before_;
};

std::string withoutCarriageReturns(std::string text) {
    std::size_t at = 0;
    while ((at = text.find("\r\n", at)) != std::string::npos)
        text.erase(at, 1);
    return text;
}

int waitForEnd(HANDLE process) {
    if (WaitForSingleObject(process, patience) != WAIT_OBJECT_0) {
        TerminateProcess(process, 1);
        throw std::runtime_error("the program does not end");
    }
    DWORD exitCode = 0;
    require(GetExitCodeProcess(process, &exitCode) != 0, "GetExitCodeProcess");
    return static_cast<int>(exitCode);
}

} // namespace

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "exit code " << outcome.exitCode << "\noutput:\n"
         << outcome.output << "errors:\n"
         << outcome.errors;
}

Outcome runUpdater(const Start& start) {
    std::vector<std::unique_ptr<EnvironmentVariable>> environment;
    for (const auto& [name, value] : start.environment)
        environment.push_back(std::make_unique<EnvironmentVariable>(name, value));

    const SharedFile input;
    const SharedFile output;
    const SharedFile errors;
    input.write(start.input);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.handle();
    startup.hStdOutput = output.handle();
    startup.hStdError = errors.handle();
    std::wstring commandLine = commandLineOf(start.arguments);
    PROCESS_INFORMATION started{};
    require(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, DETACHED_PROCESS,
                           nullptr, nullptr, &startup, &started) != 0,
            "starting certstoreupdate.exe");
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);
    const int exitCode = waitForEnd(process.get());
    return {exitCode, withoutCarriageReturns(output.read()), withoutCarriageReturns(errors.read())};
}

} // namespace testsupport
