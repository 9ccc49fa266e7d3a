// How the programs under test are started.
#include "launch.h"

#include "childprocess.h"
#include "runningonwine.h"

#include <windows.h>

#include <optional>

namespace testsupport {

namespace {

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

} // namespace

std::wstring commandLineOf(const std::wstring& fileName,
                           const std::vector<std::wstring>& arguments) {
    const std::wstring folder = folderOfThisProgram();
    std::wstring line = quoted(folder + fileName);
    if (runningOnWine())
        line = quoted(folder + L"winecompat-launcher.exe") + L" " + line;
    for (const std::wstring& argument : arguments)
        line += L" " + quoted(argument);
    return line;
}

class AddedEnvironment::Variable {
public:
    Variable(const std::wstring& name, const std::wstring& value) : name_(name) {
        std::wstring before(32768, L'\0');
        SetLastError(ERROR_SUCCESS);
        const DWORD size = GetEnvironmentVariableW(name_.c_str(), before.data(),
                                                   static_cast<DWORD>(before.size()));
        if (size != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND)
            before_ = before.substr(0, size);
        SetEnvironmentVariableW(name_.c_str(), value.c_str());
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { SetEnvironmentVariableW(name_.c_str(), before_ ? before_->c_str() : nullptr); }

private:
    std::wstring name_;
    std::optional<std::wstring> before_;
};

AddedEnvironment::AddedEnvironment(const std::map<std::wstring, std::wstring>& variables) {
    for (const auto& [name, value] : variables)
        variables_.push_back(std::make_unique<Variable>(name, value));
}

AddedEnvironment::~AddedEnvironment() = default;

std::string withoutCarriageReturns(std::string text) {
    std::size_t at = 0;
    while ((at = text.find("\r\n", at)) != std::string::npos)
        text.erase(at, 1);
    return text;
}

} // namespace testsupport
