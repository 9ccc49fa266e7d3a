// A folder for a test's own files.
#pragma once

#include <filesystem>
#include <fstream>

namespace mspermissions_test {

/// Made empty in the system's folder for temporary files, and removed with all that is in it.
class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::filesystem::path& name = "mspermissions_test")
        : path_(std::filesystem::temp_directory_path() / name) {
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

    /// A file in the folder, with its folders. `name` is relative.
    std::filesystem::path makeFile(const std::filesystem::path& name) const {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << "contents\n";
        return file;
    }
    std::filesystem::path makeFolder(const std::filesystem::path& name) const {
        const std::filesystem::path folder = path_ / name;
        std::filesystem::create_directories(folder);
        return folder;
    }

private:
    std::filesystem::path path_;
};

} // namespace mspermissions_test
