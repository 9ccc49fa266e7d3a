// A folder for the files of one test.
#include "testfolder.h"

#include "childprocess.h"

#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace testsupport {

namespace {

std::filesystem::path folderForTests() {
    const char* build = std::getenv("CSU_BUILD");
    return (build ? std::filesystem::path(build) : std::filesystem::temp_directory_path()) /
           "test-files";
}

} // namespace

TestFolder::TestFolder() {
    static unsigned count = 0;
    path_ =
        folderForTests() / (std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count));
    std::filesystem::remove_all(path_); // left behind by a test that crashed
    std::filesystem::create_directories(path_);
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path TestFolder::write(const std::filesystem::path& name,
                                        std::string_view contents) const {
    const std::filesystem::path file = path_ / name;
    std::ofstream stream(file, std::ios::binary);
    stream.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!stream.flush())
        throw std::runtime_error("a test's file cannot be written");
    return file;
}

std::filesystem::path TestFolder::replace(const std::filesystem::path& name,
                                          std::string_view contents) const {
    const std::filesystem::path file = path_ / name;
    const std::filesystem::path aside = write(name.wstring() + L".new", contents);
    const ULONGLONG end = GetTickCount64() + patience;
    // Refused while someone has the file open, which is never for long.
    while (!MoveFileExW(aside.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        require(GetTickCount64() < end, "replacing a test's file");
        SwitchToThread();
    }
    return file;
}

} // namespace testsupport
