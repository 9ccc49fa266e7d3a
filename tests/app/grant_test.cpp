// What grant does to permissions.
#include "commands.h"

#include "filesecurity.h"
#include "temporaryfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace updater {
namespace {

using mspermissions_test::FileSecurity;
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
        return output.finish();
    }

    testsupport::TemporaryFolder folder;
    const std::filesystem::path root = folder.path() / "root";
    FileSecurity security;
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
    EXPECT_THAT(security.writtenPaths(), testing::IsEmpty());
}

} // namespace
} // namespace updater
