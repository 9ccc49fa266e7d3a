// Permissions of directory trees.
#include "mspermissions.h"

#include "documentedlinks.h"
#include "filesecurity.h"
#include "linktree.h"
#include "runningonwine.h"
#include "temporaryfolder.h"
#include "thrown.h"

#include <boost/filesystem/exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <initializer_list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace {

using descriptors::canonical;
using mspermissions_test::DocumentedLinks;
using mspermissions_test::failureOf;
using mspermissions_test::FileSecurity;
using mspermissions_test::library;
using mspermissions_test::LinkTree;
using mspermissions_test::SecurityHook;
using mspermissions_test::thrownBy;
using std::filesystem::path;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;
using testsupport::TemporaryFolder;

const std::wstring plain = L"D:(A;;FA;;;WD)";
const std::wstring granted = L"D:(A;OICI;FR;;;S-1-15-2-1)(A;;FA;;;WD)";

/// The paths that Windows lists, in its order.
std::vector<std::wstring> listing(const path& folder) {
    std::vector<std::wstring> paths;
    WIN32_FIND_DATAW found{};
    const HANDLE search = FindFirstFileW((folder / "*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return paths;
    do {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..")
            paths.push_back((folder / name).native());
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return paths;
}

/// The order in which a walk comes to a folder, its entries and their entries.
std::vector<std::wstring> walk(const path& start, int levels = 2) {
    std::vector<std::wstring> paths = {start.native()};
    if (levels == 0)
        return paths;
    for (const std::wstring& entry : listing(start)) {
        const auto below = walk(entry, levels - 1);
        paths.insert(paths.end(), below.begin(), below.end());
    }
    return paths;
}

/// A folder to build a tree in. All that is made has the same DACL.
class PermissionTree : public ::testing::Test {
protected:
    void addPermissionsRecursive(const path& start) {
        MSPermissionsUtils::addPermissionsRecursive(start.c_str(), sid);
    }
    path makeFile(const path& name) {
        const path file = folder.makeFile(name);
        for (path at = file; at != folder.path(); at = at.parent_path())
            security.setDacl(at, plain);
        return file;
    }
    path makeFolder(const path& name) {
        const path made = folder.makeFolder(name);
        security.setDacl(made, plain);
        return made;
    }

    bool isGranted(const path& file) { return security.dacl(file) == canonical(granted); }
    bool isPlain(const path& file) { return security.dacl(file) == canonical(plain); }

    const AnyPackageSid sid;
    const TemporaryFolder folder;
    FileSecurity security;
};

TEST_F(PermissionTree, OfARegularFileIsTheFileAlone) {
    const path file = makeFile("root/file.txt");
    const path other = makeFile("root/other.txt");
    addPermissionsRecursive(file);
    EXPECT_TRUE(isGranted(file));
    EXPECT_TRUE(isPlain(file.parent_path()));
    EXPECT_TRUE(isPlain(other));
}

TEST_F(PermissionTree, ReachesTwoLevelsBelowItsRoot) {
    const path deepest = makeFile("root/one/two/three/three.txt");
    const path four = makeFile("root/one/two/two.txt");
    const path three = makeFile("root/one/one.txt");
    const path two = makeFile("root/root.txt");
    const path root = two.parent_path();
    addPermissionsRecursive(root);
    for (const path& file : {root, two, root / "one", three, root / "one" / "two"})
        EXPECT_TRUE(isGranted(file)) << file;
    for (const path& file : {four, deepest.parent_path(), deepest})
        EXPECT_TRUE(isPlain(file)) << file;
}

TEST_F(PermissionTree, IsNotEvenReadBelowThat) {
    makeFile("root/one/two/three.txt");
    const path root = folder.path() / "root";
    addPermissionsRecursive(root);
    EXPECT_THAT(security.reads(), ElementsAre(root.native(), (root / "one").native(),
                                              (root / "one" / "two").native()));
}

TEST_F(PermissionTree, IsGrantedFromTheRootDownInTheOrderOfTheSystem) {
    for (const char* name :
         {"root/b/y.txt", "root/b/x/deep.txt", "root/a/2.txt", "root/a/1.txt", "root/c.txt",
          "root/C2/Z.txt", "root/a.txt", "root/B2.txt", "root/1/10.txt", "root/1/9.txt"})
        makeFile(name);
    const path root = folder.path() / "root";
    addPermissionsRecursive(root);
    EXPECT_THAT(security.writtenPaths(), ElementsAreArray(walk(root)));
    EXPECT_THAT(security.writes(), SizeIs(15));
}

TEST_F(PermissionTree, MayHaveAnEmptyRoot) {
    const path root = makeFolder("root");
    addPermissionsRecursive(root);
    EXPECT_THAT(security.writtenPaths(), ElementsAre(root.native()));
}

TEST_F(PermissionTree, IsWalkedBelowWhatIsGrantedAlready) {
    const path file = makeFile("root/one/file.txt");
    const path root = folder.path() / "root";
    security.setDacl(root, L"D:(D;;FW;;;S-1-15-2-1)(A;;FA;;;WD)");
    security.setDacl(root / "one", granted);
    addPermissionsRecursive(root);
    EXPECT_THAT(security.writtenPaths(), ElementsAre(file.native()));
}

TEST_F(PermissionTree, IsNotWrittenTheSecondTime) {
    makeFile("root/one/two/three.txt");
    makeFile("root/file.txt");
    addPermissionsRecursive(folder.path() / "root");
    security.forgetCalls();
    addPermissionsRecursive(folder.path() / "root");
    EXPECT_THAT(security.writes(), IsEmpty());
}

TEST_F(PermissionTree, MayHaveNamesOutsideAscii) {
    const path file = makeFile(L"\u0416\u00E9/\u7F72\u540D/\U0001F600 \u00DF.txt");
    const path root = file.parent_path().parent_path();
    addPermissionsRecursive(root);
    for (const path& at : {root, file.parent_path(), file})
        EXPECT_TRUE(isGranted(at)) << at;
}

TEST_F(PermissionTree, MayHaveLongPathsInTheFormThatWindowsTakes) {
    const std::wstring longName(120, L'n');
    std::wstring deepest = L"\\\\?\\" + folder.path().native();
    std::vector<std::wstring> made;
    for (int level = 0; level != 4; ++level) {
        deepest += L"\\" + longName;
        ASSERT_TRUE(CreateDirectoryW(deepest.c_str(), nullptr)) << GetLastError();
        security.setDacl(deepest, plain);
        made.push_back(deepest);
    }
    ASSERT_GT(made[1].size(), std::size_t{MAX_PATH});
    addPermissionsRecursive(made[0]);
    EXPECT_THAT(security.writtenPaths(), ElementsAre(made[0], made[1], made[2]));
    EXPECT_TRUE(isPlain(made[3]));
    for (auto at = made.rbegin(); at != made.rend(); ++at)
        RemoveDirectoryW(at->c_str());
}

TEST_F(PermissionTree, ReportsARootThatIsNotThere) {
    EXPECT_EQ(thrownBy([&] { addPermissionsRecursive(folder.path() / "missing"); }),
              failureOf(L"GetFileSecurity", ERROR_FILE_NOT_FOUND));
}

TEST_F(PermissionTree, ReportsAnEmptyPathAsTheSystemDoes) {
    DWORD needed = 0;
    ASSERT_FALSE(GetFileSecurityW(L"", DACL_SECURITY_INFORMATION, nullptr, 0, &needed));
    const DWORD error = GetLastError();
    EXPECT_EQ(thrownBy([&] { addPermissionsRecursive(L""); }),
              failureOf(L"GetFileSecurity", error));
}

/// How the library sees the links of a tree.
enum class Links {
    asTheSystemShowsThem, ///< Wine shows what they lead to
    asDocumented
};

void PrintTo(Links links, std::ostream* out) {
    *out << (links == Links::asDocumented ? "as documented" : "as the system shows them");
}

class PermissionTreeWithLinks : public ::testing::TestWithParam<Links> {
protected:
    void SetUp() override {
        if (!tree.isComplete())
            GTEST_SKIP() << "making links takes a privilege, or the system's developer mode";
        if (GetParam() == Links::asDocumented)
            documented.emplace(library(), tree.links());
        for (const char* name :
             {"root", "root/inside", "root/inside/deep", "root/inside/deep/deeper.txt", "root/loop",
              "root/outside", "root/file", "target", "target/target.txt", "target/sub",
              "target/sub/subfile.txt", "other", "other/other.txt"})
            security.setDacl(tree.at(name), plain);
    }

    void addPermissionsRecursive(const path& start) {
        MSPermissionsUtils::addPermissionsRecursive(start.c_str(), sid);
    }
    void expectGranted(std::initializer_list<const char*> names) {
        for (const char* name : names)
            EXPECT_EQ(security.dacl(tree.at(name)), canonical(granted)) << name;
    }
    void expectPlain(std::initializer_list<const char*> names) {
        for (const char* name : names)
            EXPECT_EQ(security.dacl(tree.at(name)), canonical(plain)) << name;
    }

    const AnyPackageSid sid;
    const LinkTree tree;
    FileSecurity security;
    std::optional<DocumentedLinks> documented;
};

INSTANTIATE_TEST_SUITE_P(Shown, PermissionTreeWithLinks,
                         ::testing::Values(Links::asTheSystemShowsThem, Links::asDocumented));

TEST_P(PermissionTreeWithLinks, GrantsTheLinksAndWhatIsInTheFoldersThatTheyLeadTo) {
    addPermissionsRecursive(tree.root());
    expectGranted({"root", "root/inside", "root/inside/deep", "root/loop", "root/outside",
                   "root/file", "target/target.txt", "target/sub"});
    expectPlain({"root/inside/deep/deeper.txt", "target/sub/subfile.txt", "other"});
}

TEST_P(PermissionTreeWithLinks, DoesNotGrantWhatTheLinksThemselvesLeadTo) {
    addPermissionsRecursive(tree.root());
    expectPlain({"target", "other/other.txt"});
}

TEST_P(PermissionTreeWithLinks, EndsInACycle) {
    addPermissionsRecursive(tree.root());
    // Each entry is written once, by whatever path it was met first.
    EXPECT_THAT(security.writes(), SizeIs(8));
    // root, its four entries, and those of inside (1), outside (2) and loop (4).
    EXPECT_THAT(security.reads(), SizeIs(12));
    EXPECT_THAT(security.reads(), testing::Contains(tree.at("root/loop/loop").native()));
}

TEST_P(PermissionTreeWithLinks, MayBeginAtALinkToAFolder) {
    addPermissionsRecursive(tree.at("root/outside"));
    expectGranted({"root/outside", "target/target.txt", "target/sub", "target/sub/subfile.txt"});
    expectPlain({"root", "target"});
}

TEST_P(PermissionTreeWithLinks, MayBeginAtALinkToAFile) {
    addPermissionsRecursive(tree.at("root/file"));
    EXPECT_THAT(security.writtenPaths(), ElementsAre(tree.at("root/file").native()));
    expectPlain({"other/other.txt"});
}

/// A tree of seven paths, of which a test lets one fail.
class BrokenPermissionTree : public PermissionTree {
protected:
    BrokenPermissionTree() {
        for (const char* name : {"root/a/1.txt", "root/a/2.txt", "root/b/3/deep.txt"})
            makeFile(name);
        paths = walk(root);
    }

    /// Exactly the first `count` paths of the walk are granted.
    void expectGranted(std::size_t count) {
        for (std::size_t i = 0; i != paths.size(); ++i)
            EXPECT_EQ(security.dacl(paths[i]), canonical(i < count ? granted : plain)) << i;
        EXPECT_EQ(security.dacl(root / "b" / "3" / "deep.txt"), canonical(plain));
    }

    const path root = folder.path() / "root";
    std::vector<std::wstring> paths;
};

TEST_F(BrokenPermissionTree, StaysGrantedUpToTheFirstPathThatCannotBeWritten) {
    for (std::size_t broken = 0; broken != paths.size(); ++broken) {
        for (const std::wstring& at : paths)
            security.setDacl(at, plain);
        SecurityHook<decltype(SetFileSecurityW)> setFileSecurity("SetFileSecurityW");
        setFileSecurity.fail(broken + 1, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(thrownBy([&] { addPermissionsRecursive(root); }),
                  failureOf(L"SetFileSecurity", ERROR_ACCESS_DENIED));
        EXPECT_EQ(setFileSecurity.count(), broken + 1);
        expectGranted(broken);
    }
}

TEST_F(BrokenPermissionTree, StaysGrantedUpToTheFirstPathThatCannotBeRead) {
    for (std::size_t broken = 0; broken != paths.size(); ++broken) {
        for (const std::wstring& at : paths)
            security.setDacl(at, plain);
        SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW");
        getFileSecurity.fail(2 * broken + 2, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(thrownBy([&] { addPermissionsRecursive(root); }),
                  failureOf(L"GetFileSecurity", ERROR_ACCESS_DENIED));
        expectGranted(broken);
    }
}

TEST_F(BrokenPermissionTree, StaysGrantedUpToTheFirstNullDacl) {
    for (std::size_t broken = 0; broken != paths.size(); ++broken) {
        for (const std::wstring& at : paths)
            security.setDacl(at, plain);
        security.setDescriptor(paths[broken], descriptors::descriptorWith({}));
        const auto thrown = thrownBy([&] { addPermissionsRecursive(root); });
        EXPECT_EQ(thrown.params,
                  (mspermissions_test::Params{{L"error", L"GetSecurityDescriptorDacl not found"}}));
        security.setDescriptor(paths[broken], descriptors::fromSddl(plain));
        expectGranted(broken);
    }
}

TEST_F(BrokenPermissionTree, ReportsAFileThatVanishesDuringTheWalk) {
    security.afterWrite([&](const std::wstring& written) {
        if (written == paths[2])
            std::filesystem::remove(paths[3]);
    });
    EXPECT_EQ(thrownBy([&] { addPermissionsRecursive(root); }),
              failureOf(L"GetFileSecurity", ERROR_FILE_NOT_FOUND));
    EXPECT_THAT(security.writtenPaths(), ElementsAre(paths[0], paths[1], paths[2]));
}

TEST_F(BrokenPermissionTree, PassesOverADirectoryThatVanishesOnceItIsGranted) {
    security.afterWrite([&](const std::wstring& written) {
        if (written == paths[1])
            std::filesystem::remove_all(written);
    });
    EXPECT_NO_THROW(addPermissionsRecursive(root));
    EXPECT_THAT(security.writtenPaths(), ElementsAre(paths[0], paths[1], paths[4], paths[5]));
}

/// Makes CreateFileW fail for the library if it opens a path to list what is in it, or if it opens
/// the path to ask about it. Which rights it asks for then depends on Boost's version; all but the
/// one to list tell about the path itself.
class UnopenablePath {
public:
    enum class To { list, ask };

    UnopenablePath(const path& file, To purpose, DWORD error) {
        hook_.replace([this, file, purpose, error](LPCWSTR name, DWORD access, auto... others) {
            const To its = access & FILE_LIST_DIRECTORY ? To::list : To::ask;
            if (name == file.native() && its == purpose) {
                SetLastError(error);
                return INVALID_HANDLE_VALUE;
            }
            return hook_.original(name, access, others...);
        });
    }

private:
    testsupport::ImportHook<decltype(CreateFileW)> hook_{library(), "kernel32.dll", "CreateFileW"};
};

/// The boost error that a walk ends with.
struct FileSystemFailure {
    int code = 0;
    std::wstring file;
};

template <class Action>
FileSystemFailure fileSystemFailureOf(Action&& action) {
    try {
        action();
    } catch (const boost::filesystem::filesystem_error& error) {
        return {error.code().value(), error.path1().native()};
    }
    return {};
}

class UnlistableFolder : public BrokenPermissionTree {
protected:
    /// Lets nobody list the folder. Under Wine the tests run as somebody whom no permissions keep
    /// from that, so there the call fails that opens the folder.
    void forbidListing(const path& unlistable) {
        if (testsupport::runningOnWine())
            unopenable = std::make_unique<UnopenablePath>(unlistable, UnopenablePath::To::list,
                                                          ERROR_ACCESS_DENIED);
        else
            security.setDacl(unlistable, L"D:(D;;0x1;;;WD)(A;;FA;;;WD)");
    }
    void TearDown() override {
        if (!testsupport::runningOnWine())
            for (const std::wstring& at : paths)
                security.setDacl(at, plain);
    }

    std::unique_ptr<UnopenablePath> unopenable;
};

TEST_F(UnlistableFolder, EndsTheWalkWithAFileSystemError) {
    forbidListing(root / "a");
    const auto failure = fileSystemFailureOf([&] { addPermissionsRecursive(root); });
    EXPECT_EQ(failure.code, ERROR_ACCESS_DENIED);
    EXPECT_EQ(failure.file, (root / "a").native());
    EXPECT_THAT(security.writtenPaths(), ElementsAre(paths[0], paths[1]));
    EXPECT_TRUE(isGranted(root));
    EXPECT_TRUE(isPlain(root / "b"));
}

TEST_F(UnlistableFolder, EndsTheWalkEvenIfNothingInItWouldBeGranted) {
    forbidListing(root / "b" / "3");
    const auto failure = fileSystemFailureOf([&] { addPermissionsRecursive(root); });
    EXPECT_EQ(failure.code, ERROR_ACCESS_DENIED);
    EXPECT_EQ(failure.file, (root / "b" / "3").native());
    EXPECT_THAT(security.writtenPaths(), ElementsAreArray(paths));
}

TEST_F(BrokenPermissionTree, EndsWithAFileSystemErrorIfATypeCannotBeTold) {
    const UnopenablePath unopenable(root / "a", UnopenablePath::To::ask, ERROR_GEN_FAILURE);
    const auto failure = fileSystemFailureOf([&] { addPermissionsRecursive(root); });
    EXPECT_EQ(failure.code, ERROR_GEN_FAILURE);
    EXPECT_EQ(failure.file, (root / "a").native());
    expectGranted(2);
}

TEST(PermissionTreeOnRealCalls, IsWalkedToItsEnd) {
    const TemporaryFolder folder;
    const path file = folder.makeFile("root/one/two/three/four.txt");
    const path root = folder.path() / "root";
    const AnyPackageSid sid;
    ASSERT_NO_THROW(MSPermissionsUtils::addPermissionsRecursive(root.c_str(), sid));
    if (!mspermissions_test::filesKeepDacls())
        return;
    const auto has = [&](const path& at) {
        return MSPermissionsUtils::hasPermissions(SecurityDescriptorDacl(at.native()), sid);
    };
    EXPECT_TRUE(has(root) && has(root / "one") && has(root / "one" / "two"));
    EXPECT_FALSE(has(root / "one" / "two" / "three") || has(file));
}

} // namespace
