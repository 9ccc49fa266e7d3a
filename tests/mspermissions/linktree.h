// A directory tree with links.
#pragma once

#include "runningonwine.h"
#include "temporaryfolder.h"

#include <windows.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace mspermissions_test {

/// root contains inside/deep/deeper.txt and three links: loop to root itself, outside to the
/// directory target, file to other/other.txt. target contains target.txt and sub/subfile.txt.
///
/// Wine cannot make links, but follows those of the Unix side, so there the tree is one that the
/// build has made beside the test program. The tests do not change it: under Wine they keep the
/// permissions of its files themselves.
class LinkTree {
public:
    LinkTree() {
        if (testsupport::runningOnWine()) {
            path_ = programFolder() / "linktree";
            return;
        }
        temporary_.emplace();
        path_ = temporary_->path();
        temporary_->makeFile("root/inside/deep/deeper.txt");
        temporary_->makeFile("target/target.txt");
        temporary_->makeFile("target/sub/subfile.txt");
        temporary_->makeFile("other/other.txt");
        link("root/loop", root(), SYMBOLIC_LINK_FLAG_DIRECTORY);
        link("root/outside", path_ / "target", SYMBOLIC_LINK_FLAG_DIRECTORY);
        link("root/file", path_ / "other/other.txt", 0);
    }

    LinkTree(const LinkTree&) = delete;
    LinkTree& operator=(const LinkTree&) = delete;
    ~LinkTree() {
        if (!temporary_)
            return;
        // Removed here, so that what they lead to is not removed through them.
        RemoveDirectoryW(at("root/loop").c_str());
        RemoveDirectoryW(at("root/outside").c_str());
        DeleteFileW(at("root/file").c_str());
    }

    /// False if the user may not make links.
    bool isComplete() const { return complete_; }
    /// \param name relative to the folder that holds root, target and other
    std::filesystem::path at(const std::filesystem::path& name) const {
        return (path_ / name).make_preferred();
    }
    std::filesystem::path root() const { return at("root"); }
    std::vector<std::filesystem::path> links() const {
        return {at("root/loop"), at("root/outside"), at("root/file")};
    }

private:
    static std::filesystem::path programFolder() {
        std::wstring program(32768, L'\0');
        program.resize(
            GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
        return std::filesystem::path(program).parent_path();
    }

    void link(const std::filesystem::path& name, const std::filesystem::path& target, DWORD flags) {
        constexpr DWORD withoutPrivilege = 2; // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
        if (!CreateSymbolicLinkW(at(name).c_str(), target.c_str(), flags | withoutPrivilege))
            complete_ = false;
    }

    std::optional<testsupport::TemporaryFolder> temporary_;
    std::filesystem::path path_;
    bool complete_ = true;
};

} // namespace mspermissions_test
