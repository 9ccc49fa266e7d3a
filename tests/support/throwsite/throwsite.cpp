// Where the sources throw what a test caught.
#include "throwsite.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <string_view>

namespace testsupport {

namespace {

namespace fs = std::filesystem;

const fs::path sources = CSU_SOURCES;

/// Reads each file once: tests with thousands of malformed inputs ask of the same ones.
const std::vector<std::string>& linesOf(const fs::path& file) {
    thread_local std::map<fs::path, std::vector<std::string>> known;
    const auto [entry, isNew] = known.try_emplace(file);
    if (isNew) {
        std::ifstream stream(file);
        for (std::string line; std::getline(stream, line);)
            entry->second.push_back(line);
    }
    return entry->second;
}

/// Whether a line calls a function whose name begins so, or uses such a keyword.
bool uses(std::string_view line, std::string_view name) {
    const std::size_t at = line.find(name);
    return at == 0 || (at != std::string_view::npos && line[at - 1] == ' ');
}

bool throws(std::string_view line) {
    return uses(line, "throw") || uses(line, "check");
}

/// Whether a line is in a function that throws for its caller, whose line it is given.
bool isInHelper(const std::vector<std::string>& lines, std::size_t at) {
    // A function ends with a brace that is not indented.
    while (at != 0 && !lines[at - 1].starts_with('}')) {
        --at;
        if (lines[at].find("__builtin_LINE") != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

testing::AssertionResult isThrowSite(const std::wstring& file, int line) {
    // On a machine that has only the test programs there is nothing to compare with.
    if (!fs::exists(sources))
        return testing::AssertionSuccess();
    std::wstring path = file;
    std::replace(path.begin(), path.end(), L'\\', L'/');
    const fs::path source = sources / path;
    const std::vector<std::string>& lines = linesOf(source);
    if (line < 1 || static_cast<std::size_t>(line) > lines.size())
        return testing::AssertionFailure()
               << testing::PrintToString(file) << " has no line " << line;
    const std::size_t at = static_cast<std::size_t>(line) - 1;
    if (!throws(lines[at]) || isInHelper(lines, at))
        return testing::AssertionFailure() << testing::PrintToString(file) << " does not throw at "
                                           << line << ": " << lines[at];
    return testing::AssertionSuccess();
}

std::vector<std::wstring> throwingFiles(const fs::path& folder) {
    std::vector<std::wstring> files;
    if (!fs::exists(sources))
        return files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(sources / folder)) {
        const auto lines =
            entry.is_regular_file() ? linesOf(entry.path()) : std::vector<std::string>();
        if (std::none_of(lines.begin(), lines.end(), [](const std::string& line) {
                return line.find("wchar_t sourceFile[] =") != std::string::npos;
            }))
            continue;
        std::wstring name = fs::relative(entry.path(), sources).generic_wstring();
        std::replace(name.begin(), name.end(), L'/', L'\\');
        files.push_back(name);
    }
    return files;
}

} // namespace testsupport
