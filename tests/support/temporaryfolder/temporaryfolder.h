// A folder for a test's own files.
#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace testsupport {

/// Made empty in the system's folder for temporary files, under a name that no other process uses,
/// and removed with all that is in it.
class TemporaryFolder {
public:
    /// \param name what the folder's name begins with; objects that live at the same time in one
    ///   process need different names
    explicit TemporaryFolder(const std::filesystem::path& name = "certstoreupdater test")
        : path_(std::filesystem::temp_directory_path() / name) {
        path_ += " " + std::to_string(GetCurrentProcessId());
        path_.make_preferred();
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const noexcept { return path_; }

    /// Makes a file in the folder, and the folders that lead to it.
    /// \param name relative to the folder, here and below
    std::filesystem::path makeFile(const std::filesystem::path& name) const {
        const std::filesystem::path file = (path_ / name).make_preferred();
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << "contents\n";
        return file;
    }
    std::filesystem::path makeFolder(const std::filesystem::path& name) const {
        const std::filesystem::path folder = (path_ / name).make_preferred();
        std::filesystem::create_directories(folder);
        return folder;
    }

private:
    std::filesystem::path path_;
};

} // namespace testsupport
