// A folder for the files of one test.
#pragma once

#include <filesystem>
#include <string_view>

namespace testsupport {

/// A new folder under the build folder, gone with all that is in it after the test.
class TestFolder {
public:
    TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder();

    const std::filesystem::path& path() const noexcept { return path_; }
    /// Writes a file and returns its path.
    std::filesystem::path write(const std::filesystem::path& name, std::string_view contents) const;
    /// The same for a file that a running program may read at any time: it finds the contents
    /// before or the new ones, never a part of them.
    std::filesystem::path replace(const std::filesystem::path& name,
                                  std::string_view contents) const;

private:
    std::filesystem::path path_;
};

} // namespace testsupport
