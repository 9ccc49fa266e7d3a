// Signatures: of files that are asked about, and of the module before it is loaded.
#include "files.h"
#include "runningonwine.h"
#include "signedfiles.h"
#include "updatertest.h"

namespace updater {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

[[maybe_unused]] const auto* const authority =
    testing::AddGlobalTestEnvironment(new signedfiles::TrustedAuthority);

std::wstring signedFile(const wchar_t* name) {
    return (signedfiles::folder() / name).wstring();
}

class SignedModule : public UpdaterTest {
protected:
    SignedModule() { module = signedFile(L"signed.dll"); }

    Outcome syncWithoutPermission() {
        return runWith({L"sync", L"--csp", testCsp, L"--store", store.name(), L"--module", module,
                        L"--pin-env", L"TEST_PIN"});
    }
};

TEST_F(SignedModule, IsLoadedIfWindowsTrustsItsSignature) {
    certificateWithKey(numbered(1), "01");
    EXPECT_THAT(syncWithoutPermission(), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), SizeIs(1));
}

TEST_F(SignedModule, IsNotLoadedWithoutASignature) {
    module = testsupport::folderOfThisProgram() + L"faketoken.dll";
    EXPECT_THAT(syncWithoutPermission(),
                EndsWithCode(8, AllOf(HasSubstr("was not loaded"), HasSubstr("faketoken.dll"),
                                      HasSubstr("--allow-unsigned-module"),
                                      EndsWith("(CertStoreUpdaterError_InvalidFileSignature)\n"))));
    EXPECT_EQ(calls(), "");
}

TEST_F(SignedModule, IsTheFileThatTheLoaderWouldOpen) {
    // The loader adds an extension to a name that has none: that file is the one to be checked.
    const auto copy = folder.path() / "module.dll";
    std::filesystem::copy_file(testsupport::folderOfThisProgram() + L"faketoken.dll", copy);
    std::filesystem::copy_file(module, folder.path() / "module");
    module = (folder.path() / "module").wstring();
    EXPECT_THAT(syncWithoutPermission(), EndsWithCode(8, HasSubstr("module.dll")));
    // Windows takes a dot at the end away, which the loader would then make up for.
    const std::wstring withoutDot = module;
    module += L".";
    EXPECT_THAT(syncWithoutPermission(), EndsWithCode(8, HasSubstr("module.dll")));
    module = withoutDot;
    std::filesystem::remove(copy);
    std::filesystem::copy_file(signedFile(L"signed.dll"), copy);
    EXPECT_THAT(syncWithoutPermission(), EndsWithCode(0, IsEmpty()));
}

TEST_F(SignedModule, IsNotLoadedThroughALinkToWhatTheLoaderWouldNotOpen) {
    const auto target = folder.path() / "module";
    std::filesystem::copy_file(module, target);
    std::filesystem::copy_file(testsupport::folderOfThisProgram() + L"faketoken.dll",
                               folder.path() / "module.dll");
    module = (folder.path() / "link.dll").wstring();
    // Wine cannot make links, but follows those of the Unix side.
    if (testsupport::runningOnWine())
        module = signedFile(L"link.dll");
    else if (!CreateSymbolicLinkW(module.c_str(), target.c_str(),
                                  SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE))
        GTEST_SKIP() << "making links takes a privilege, or the system's developer mode";
    EXPECT_THAT(syncWithoutPermission(),
                EndsWithCode(3, HasSubstr("a name that means another file to Windows")));
    EXPECT_EQ(calls(), "");
}

TEST_F(SignedModule, IsNotLoadedWhileSomebodyCanChangeIt) {
    const std::wstring copy = (folder.path() / "open.dll").wstring();
    std::filesystem::copy_file(module, copy);
    const Handle writer =
        openExisting(copy, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_TRUE(writer);
    module = copy;
    EXPECT_THAT(syncWithoutPermission(), EndsWithCode(3, HasSubstr("error 32)")));
    EXPECT_EQ(calls(), "");
}

class Verify : public UpdaterTest {};

TEST_F(Verify, TellsOfEachFile) {
    const Outcome outcome = runWith({L"verify", signedFile(L"signed.exe"),
                                     signedFile(L"unsigned.exe"), signedFile(L"signed.msi")});
    EXPECT_THAT(outcome,
                EndsWithCode(8, AllOf(HasSubstr("unsigned.exe"),
                                      EndsWith("(CertStoreUpdaterError_InvalidFileSignature)\n"))));
    EXPECT_THAT(outcome.output, HasLine("trusted      .*signed\\.exe"));
    EXPECT_THAT(outcome.output, HasLine("not trusted  .*unsigned\\.exe"));
    EXPECT_THAT(outcome.output, HasLine("trusted      .*signed\\.msi"));
}

TEST_F(Verify, SaysThatAFileIsNotThere) {
    EXPECT_THAT(runWith({L"verify", signedFile(L"none.exe")}),
                EndsWithCode(8, AllOf(HasSubstr("none.exe"), HasSubstr("error 2)"))));
}

TEST_F(Verify, SaysWhatWasAskedForAlsoIfItIsToBeQuiet) {
    const Outcome outcome = runWith({L"verify", L"--quiet", signedFile(L"signed.cab")});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, StartsWith("trusted  "));
}

} // namespace
} // namespace updater
