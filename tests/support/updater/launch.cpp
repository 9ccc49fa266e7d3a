// How the programs under test are started.
#include "launch.h"

#include "childprocess.h"

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace testsupport {

namespace {

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

std::wstring commandLineOf(const std::wstring& fileName,
                           const std::vector<std::wstring>& arguments) {
    const std::wstring folder = folderOfThisProgram();
    std::wstring line = quoted(folder + fileName);
    if (isWine())
        line = quoted(folder + L"winecompat-launcher.exe") + L" " + line;
    for (const std::wstring& argument : arguments)
        line += L" " + quoted(argument);
    return line;
}

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

} // namespace

void require(bool succeeded, const char* what) {
    if (!succeeded)
        throw std::runtime_error(std::string(what) + " failed with error " +
                                 std::to_string(GetLastError()));
}

SharedFile::SharedFile() {
    std::array<wchar_t, MAX_PATH> folder{};
    std::array<wchar_t, MAX_PATH> name{};
    GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    require(GetTempFileNameW(folder.data(), L"csu", 0, name.data()) != 0, "GetTempFileName");
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const HANDLE file =
        CreateFileW(name.data(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable,
                    CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    require(file != INVALID_HANDLE_VALUE, "CreateFile");
    file_.reset(file);
}

void SharedFile::write(std::string_view text) const {
    DWORD written = 0;
    require(WriteFile(handle(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) !=
                0,
            "WriteFile");
    rewind();
}

std::string SharedFile::read() const {
    rewind();
    std::string text;
    std::array<char, 4096> chunk{};
    DWORD count = 0;
    while (ReadFile(handle(), chunk.data(), static_cast<DWORD>(chunk.size()), &count, nullptr) &&
           count != 0)
        text.append(chunk.data(), count);
    return text;
}

void SharedFile::rewind() const {
    SetFilePointer(handle(), 0, nullptr, FILE_BEGIN);
}

Handle launch(const std::wstring& fileName, const Start& start, HANDLE input, HANDLE output,
              HANDLE errors, DWORD creationFlags, DWORD* processId) {
    std::vector<std::unique_ptr<EnvironmentVariable>> environment;
    for (const auto& [name, value] : start.environment)
        environment.push_back(std::make_unique<EnvironmentVariable>(name, value));

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output;
    startup.hStdError = errors;
    std::wstring commandLine = commandLineOf(fileName, start.arguments);
    PROCESS_INFORMATION started{};
    require(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, creationFlags,
                           nullptr, nullptr, &startup, &started) != 0,
            "starting a program");
    CloseHandle(started.hThread);
    if (processId)
        *processId = started.dwProcessId;
    return Handle(started.hProcess);
}

void waitForEndOf(HANDLE process) {
    if (WaitForSingleObject(process, patience) != WAIT_OBJECT_0)
        throw std::runtime_error("the program does not end");
}

int exitCodeOf(HANDLE process) {
    DWORD exitCode = 0;
    require(GetExitCodeProcess(process, &exitCode) != 0, "GetExitCodeProcess");
    return static_cast<int>(exitCode);
}

std::string withoutCarriageReturns(std::string text) {
    std::size_t at = 0;
    while ((at = text.find("\r\n", at)) != std::string::npos)
        text.erase(at, 1);
    return text;
}

} // namespace testsupport
