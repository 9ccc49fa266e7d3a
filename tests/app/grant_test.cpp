// What grant does to permissions.
#include "commands.h"

#include "text.h"

#include "documentedlinks.h"
#include "filesecurity.h"
#include "linktree.h"
#include "temporaryfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace updater {
namespace {

using mspermissions_test::DocumentedLinks;
using mspermissions_test::FileSecurity;
using mspermissions_test::LinkTree;
using mspermissions_test::SecurityHook;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class Granting : public testing::Test {
protected:
    Granting() {
        std::filesystem::create_directories(root / "one" / "two" / "three");
        std::ofstream(root / "one" / "two" / "file") << "text";
    }

    ExitCode grant(const std::filesystem::path& path, bool recursive) {
        Options options;
        options.command = Command::grant;
        options.paths = {path.wstring()};
        options.recursive = recursive;
        Output output("grant", {.quiet = true});
        grantAccess(options, output);
        warnings.clear();
        for (const Json& warning : output.member("warnings"))
            warnings.push_back(warning.at("message"));
        return output.finish();
    }

    testsupport::TemporaryFolder folder;
    const std::filesystem::path root = folder.path() / "root";
    FileSecurity security;
    std::vector<std::string> warnings; ///< of the last run
};

TEST_F(Granting, ChangesThePathItself) {
    EXPECT_EQ(grant(root, false), ExitCode::done);
    EXPECT_THAT(security.writtenPaths(), UnorderedElementsAre(root.wstring()));
    EXPECT_NE(security.dacl(root).find(L";;;AC)"), std::wstring::npos) << "all packages";
}

TEST_F(Granting, GoesTwoLevelsDownAndNotDeeper) {
    EXPECT_EQ(grant(root, true), ExitCode::done);
    EXPECT_THAT(security.writtenPaths(),
                UnorderedElementsAre(root.wstring(), (root / "one").wstring(),
                                     (root / "one" / "two").wstring()));
}

TEST_F(Granting, ChangesNothingTheSecondTime) {
    grant(root, true);
    security.forgetCalls();
    EXPECT_EQ(grant(root, true), ExitCode::done);
    EXPECT_THAT(security.writtenPaths(), IsEmpty());
}

TEST_F(Granting, WarnsOfNothingThatIsNeitherALinkNorProtected) {
    EXPECT_EQ(grant(root, true), ExitCode::done);
    EXPECT_THAT(warnings, IsEmpty());
}

testing::Matcher<std::string> lostProtection(const std::filesystem::path& path) {
    return AllOf(StartsWith(toUtf8(L"\"" + path.wstring() + L"\" was protected")),
                 HasSubstr("is not any more"));
}

class GrantingWhatIsProtected : public Granting {
protected:
    void protect(const std::filesystem::path& path) {
        security.setDescriptor(path, descriptors::fromSddl(L"D:PAI(A;;FA;;;WD)"));
    }
};

TEST_F(GrantingWhatIsProtected, WarnsThatItLosesItsProtection) {
    protect(root);
    EXPECT_EQ(grant(root, false), ExitCode::done);
    EXPECT_THAT(warnings, ElementsAre(lostProtection(root)));
}

TEST_F(GrantingWhatIsProtected, WarnsOfEachPathThatIsReachedInAFolder) {
    protect(root / "one");
    protect(root / "one" / "two");
    protect(root / "one" / "two" / "three");
    EXPECT_EQ(grant(root, true), ExitCode::done);
    EXPECT_THAT(warnings, UnorderedElementsAre(lostProtection(root / "one"),
                                               lostProtection(root / "one" / "two")));
}

TEST_F(GrantingWhatIsProtected, WarnsOfThePathItselfOnlyIfNothingElseIsGranted) {
    protect(root / "one");
    EXPECT_EQ(grant(root, false), ExitCode::done);
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(GrantingWhatIsProtected, DoesNotWarnIfItIsGrantedAlready) {
    security.setDescriptor(root, descriptors::fromSddl(L"D:PAI(A;;FR;;;AC)"));
    EXPECT_EQ(grant(root, false), ExitCode::done);
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(GrantingWhatIsProtected, WarnsOfWhatWasWrittenBeforeAFailure) {
    protect(root);
    protect(root / "one");
    protect(root / "one" / "two");
    SecurityHook<decltype(SetFileSecurityW)> setFileSecurity("SetFileSecurityW");
    setFileSecurity.fail(3, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_EQ(grant(root, true), ExitCode::permissions);
    EXPECT_THAT(warnings, UnorderedElementsAre(lostProtection(root), lostProtection(root / "one")));
}

/// Links as Windows shows them to this program, of which the commands are a part.
class GrantingALink : public Granting {
protected:
    void SetUp() override {
        if (!tree.isComplete())
            GTEST_SKIP() << "making links takes a privilege, or the system's developer mode";
    }
    std::string nameOf(const char* link) {
        return toUtf8(L"\"" + tree.at(link).wstring() + L"\" is a link");
    }

    const LinkTree tree;
    const DocumentedLinks documented{GetModuleHandleW(nullptr), tree.links()};
};

TEST_F(GrantingALink, WarnsThatWhatItLeadsToWasNotGranted) {
    for (const char* link : {"root/file", "root/outside"}) {
        EXPECT_EQ(grant(tree.at(link), false), ExitCode::done);
        EXPECT_THAT(warnings,
                    ElementsAre(AllOf(StartsWith(nameOf(link)),
                                      HasSubstr("granted itself, what it leads to was not"))));
    }
}

TEST_F(GrantingALink, WarnsThatTheFolderItselfWasNotGranted) {
    EXPECT_EQ(grant(tree.at("root/outside"), true), ExitCode::done);
    EXPECT_THAT(warnings, ElementsAre(AllOf(StartsWith(nameOf("root/outside")),
                                            HasSubstr("what is in the folder"),
                                            HasSubstr("but not that folder"))));
}

TEST_F(GrantingALink, DoesNotWarnOfWhatIsNone) {
    EXPECT_EQ(grant(tree.at("target"), false), ExitCode::done);
    EXPECT_EQ(grant(tree.at("root/outside/target.txt"), false), ExitCode::done);
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(GrantingALink, DoesNotWarnIfItFails) {
    security.setDescriptor(tree.at("root/file"), descriptors::descriptorWith({}));
    EXPECT_EQ(grant(tree.at("root/file"), false), ExitCode::permissions);
    EXPECT_THAT(warnings, IsEmpty());
}

} // namespace
} // namespace updater
