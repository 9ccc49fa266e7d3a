// Runs all test programs of a bundle on a machine without tools, and writes a report of what became
// of them: runtests.exe [PROGRAM...]
//
// In its folder lie tests.txt, which names the programs, one on each line; bin, with the programs
// and all that they load; and softhsm2.dll. It leaves report.txt there, and the folder results with
// the output and the results of each program.
#include "createprocess.h"

#include <nlohmann/json.hpp>

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr DWORD patience = 1'800'000; // milliseconds

/// How a program ended.
struct Ending {
    std::string how; ///< empty for an exit code of 0
    double seconds = 0;
};

struct Counts {
    unsigned passed = 0;
    unsigned failed = 0;
    unsigned skipped = 0;

    bool isNothing() const { return passed + failed + skipped == 0; }
    Counts& operator+=(const Counts& other) {
        passed += other.passed;
        failed += other.failed;
        skipped += other.skipped;
        return *this;
    }
};

std::ostream& operator<<(std::ostream& out, const Counts& counts) {
    return out << counts.passed << " passed, " << counts.failed << " failed, " << counts.skipped
               << " skipped";
}

struct HandleCloser {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

fs::path ownFolder() {
    std::wstring file(32768, L'\0');
    file.resize(GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size())));
    return fs::path(file).parent_path();
}

/// Sets what the programs look for in their environment.
void setEnvironment(const fs::path& folder) {
    SetEnvironmentVariableW(L"CSU_BUILD", folder.c_str());
    SetEnvironmentVariableW(L"CSU_SOFTHSM_DLL", (folder / "softhsm2.dll").c_str());
}

Handle createLog(const fs::path& file) {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        throw std::runtime_error(file.string() + " cannot be written");
    return Handle(handle);
}

std::string endingOf(HANDLE process) {
    if (WaitForSingleObject(process, patience) != WAIT_OBJECT_0) {
        TerminateProcess(process, 1);
        return "did not end";
    }
    DWORD code = 0;
    GetExitCodeProcess(process, &code);
    if (code == 0)
        return {};
    std::ostringstream text;
    text << "ended with " << code;
    if (code >= 0x80000000)
        text << " (0x" << std::hex << code << ")";
    return text.str();
}

Ending run(const fs::path& program, const fs::path& results, const fs::path& log) {
    const Handle output = createLog(log);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output.get();
    PROCESS_INFORMATION process{};
    std::wstring command = L"\"" + program.wstring() +
                           L"\" --gtest_brief=1 \"--gtest_output=json:" + results.wstring() + L"\"";
    const ULONGLONG start = GetTickCount64();
    if (!testsupport::createProcess([&] {
            return CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, 0,
                                  nullptr, results.parent_path().c_str(), &startup, &process);
        }))
        return {"cannot be started: error " + std::to_string(GetLastError()), 0};
    const Handle thread(process.hThread);
    const Handle handle(process.hProcess);
    Ending ending{endingOf(handle.get()), 0};
    ending.seconds = static_cast<double>(GetTickCount64() - start) / 1000;
    return ending;
}

/// The end of a program's output. Only there does it say why tests were skipped.
std::string endOf(const fs::path& log) {
    constexpr std::streamoff length = 4000;
    std::ifstream stream(log, std::ios::binary | std::ios::ate);
    const std::streamoff size = stream ? std::streamoff{stream.tellg()} : 0;
    stream.seekg(std::max<std::streamoff>(0, size - length));
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// Counts a test, and names it with its messages unless it passed.
void countTest(const std::string& suite, const nlohmann::json& test, Counts& counts,
               std::ostream& details) {
    const std::string name = suite + "." + test.at("name").get<std::string>();
    if (test.contains("failures")) {
        ++counts.failed;
        details << "\nFAILED " << name << "\n";
        for (const auto& failure : test.at("failures"))
            details << failure.at("failure").get<std::string>() << "\n";
    } else if (test.at("result") == "SKIPPED") {
        ++counts.skipped;
        details << "\nskipped " << name << "\n";
    } else if (test.at("status") == "RUN") {
        ++counts.passed;
    }
}

/// Counts the tests in a program's results; none if the program broke off before it wrote all of
/// them.
Counts readResults(const fs::path& file, std::ostream& details) {
    Counts counts;
    std::ifstream stream(file);
    const auto document = nlohmann::json::parse(stream, nullptr, false);
    if (document.is_discarded())
        return counts;
    for (const auto& suite : document.at("testsuites"))
        for (const auto& test : suite.at("testsuite"))
            countTest(suite.at("name").get<std::string>(), test, counts, details);
    return counts;
}

std::string registryText(const wchar_t* name) {
    wchar_t text[256] = L"";
    DWORD size = sizeof text;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", name,
                     RRF_RT_REG_SZ, nullptr, text, &size) != ERROR_SUCCESS)
        return "?";
    return fs::path(text).string();
}

std::string windowsVersion() {
    std::string text = registryText(L"ProductName") + ", version " +
                       registryText(L"DisplayVersion") + ", build " +
                       registryText(L"CurrentBuildNumber");
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version"))
        text += " (Wine)";
    return text;
}

std::vector<std::string> programsToRun(const fs::path& folder, int argc, char** argv) {
    if (argc > 1)
        return {argv + 1, argv + argc};
    std::vector<std::string> programs;
    std::ifstream list(folder / "tests.txt");
    for (std::string line; std::getline(list, line);)
        programs.push_back(line);
    if (programs.empty())
        throw std::runtime_error("tests.txt names no program");
    return programs;
}

/// What the report says of all programs.
struct Report {
    Counts total;
    unsigned broken = 0; ///< programs that ended without saying what failed, or without any result
    std::ostringstream lines;
    std::ostringstream details;
};

void runProgram(const std::string& name, const fs::path& folder, Report& report) {
    const fs::path results = folder / "results" / (name + ".json");
    const fs::path log = folder / "results" / (name + ".log");
    std::cout << std::left << std::setw(36) << name << std::flush;
    const Ending ending = run(folder / "bin" / (name + ".exe"), results, log);
    std::ostringstream found;
    const Counts counts = readResults(results, found);
    report.total += counts;
    if (counts.isNothing() || (!ending.how.empty() && counts.failed == 0))
        ++report.broken;

    std::ostringstream line;
    line << counts << (ending.how.empty() ? "" : ", ") << ending.how << std::fixed
         << std::setprecision(1) << ", " << ending.seconds << " s\n";
    std::cout << line.str();
    report.lines << std::left << std::setw(36) << name << line.str();
    if (!found.str().empty() || !ending.how.empty() || counts.isNothing())
        report.details << "\n==== " << name << "\n"
                       << found.str() << "\nThe end of its output:\n"
                       << endOf(log);
}

/// \returns the exit code: 0 if all tests passed
int runAll(int argc, char** argv) {
    const fs::path folder = ownFolder();
    const std::vector<std::string> programs = programsToRun(folder, argc, argv);
    setEnvironment(folder);
    fs::remove_all(folder / "results");
    fs::create_directories(folder / "results");

    Report report;
    for (const std::string& name : programs)
        runProgram(name, folder, report);
    std::ostringstream last;
    last << "in all: " << report.total << ", " << report.broken << " programs broke off\n";
    const fs::path file = folder / "report.txt";
    std::ofstream(file) << windowsVersion() << "\n\n"
                        << report.lines.str() << last.str() << report.details.str();
    std::cout << last.str() << "The report: " << file.string() << "\n";
    return report.total.failed || report.broken ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return runAll(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "runtests: " << error.what() << "\n";
        return 2;
    }
}
