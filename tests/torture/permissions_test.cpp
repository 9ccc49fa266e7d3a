// Granting a tree, once for every call of Windows that can fail with every error that it may
// leave, and once for every allocation.
#include "mspermissions.h"

#include "libraryallocations.h"
#include "openhandles.h"
#include "outcome.h"
#include "tally.h"
#include "windowscalls.h"
#include "windowserrors.h"

#include "filesecurity.h"
#include "temporaryfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace torture {
namespace {

using mspermissions_test::FileSecurity;
using std::filesystem::path;

/// A folder with a file and a folder that has one in turn, none granted yet.
class PermissionFailure : public testing::Test {
protected:
    static constexpr wchar_t before[] = L"D:(D;;FW;;;BG)(A;;FA;;;WD)";
    static constexpr wchar_t after[] = L"D:(A;OICI;FR;;;S-1-15-2-1)(D;;FW;;;BG)(A;;FA;;;WD)";

    void SetUp() override {
        EXPECT_EQ(grantTree(), success);
        walked = security.writtenPaths();
        EXPECT_EQ(walked.size(), 4u);
        expectAllIsGivenBack();
        expectGranted(walked.size());
    }

    /// Grants the tree after taking away all grants.
    Outcome grantTree(std::size_t failingCall = 0, DWORD error = ERROR_SUCCESS) {
        for (const path& entry : {root, file, innermost.parent_path(), innermost})
            security.setDacl(entry, before);
        security.forgetCalls();
        handles = openHandles();
        windows.begin(failingCall, error);
        return outcomeOf([&] {
            const AnyPackageSid sid;
            MSPermissionsUtils::addPermissionsRecursive(root.c_str(), sid);
        });
    }

    void expectAllIsGivenBack() {
        EXPECT_EQ(windows.sids.held(), 0u);
        EXPECT_EQ(windows.files.held(), 0u);
        EXPECT_EQ(windows.sids.strays() + windows.files.strays(), 0u);
        EXPECT_EQ(openHandles(), handles);
    }

    /// The first so many paths of the walk are granted, the others as they were.
    void expectGranted(std::size_t count) {
        for (std::size_t i = 0; i != walked.size(); ++i)
            EXPECT_EQ(security.dacl(walked[i]), descriptors::canonical(i < count ? after : before))
                << path(walked[i]);
    }

    /// How many paths of the walk were written. They must be the first.
    std::size_t pathsWritten() {
        const std::vector<std::wstring> written = security.writtenPaths();
        EXPECT_TRUE(written.size() <= walked.size() &&
                    std::equal(written.begin(), written.end(), walked.begin()))
            << testing::PrintToString(written);
        return written.size();
    }

    testsupport::TemporaryFolder folder{"certstoreupdater torture"};
    const path innermost = folder.makeFile("tree/inner/innermost.txt");
    const path file = folder.makeFile("tree/file.txt");
    const path root = folder.path() / "tree";
    FileSecurity security;
    WindowsCalls windows;
    std::vector<std::wstring> walked; ///< the paths that are granted, in order
    DWORD handles = 0;
};

Outcome configurationError(std::wstring method, DWORD error) {
    if (method.ends_with(L'W'))
        method.pop_back();
    return {"CertStoreUpdaterError_InvalidConfiguration",
            {{L"Method", method}, {L"error", std::to_wstring(error)}},
            {}};
}

Outcome expectedOutcome(const WindowsCall& call, DWORD error) {
    // Boost.Filesystem's own calls: listing a folder, and asking what an entry is. An entry that
    // is gone, in use or not to be opened is no folder, or is asked about in another way.
    if (call.function == "CreateFileW") {
        // Which rights a question takes depends on Boost's version; none is the one to list.
        const bool isQuestion = !(call.access & FILE_LIST_DIRECTORY);
        if (isQuestion && (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
                           error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION))
            return success;
        return {"filesystem_error", {{L"error", std::to_wstring(error)}}, {}};
    }
    // Without the length that the first call was to tell there is no room for the second.
    if (call.function == "GetFileSecurityW" && call.asksSize)
        return configurationError(L"GetFileSecurity", ERROR_INSUFFICIENT_BUFFER);
    return configurationError(std::wstring(call.function.begin(), call.function.end()), error);
}

/// Whether the entries of a folder are passed over because nobody could tell that it is one.
bool isPassedOver(const WindowsCall& call, DWORD error) {
    return call.function == "CreateFileW" && error != ERROR_ACCESS_DENIED;
}

TEST_F(PermissionFailure, OfEachWindowsCallIsReportedAndLeavesWhatWasGranted) {
    Tally tally("Windows calls of granting a tree");
    const std::vector<WindowsCall> calls = windows.calls();
    failEachCall(tally, calls, [&](std::size_t n, DWORD error) {
        const Outcome expected = expectedOutcome(calls[n - 1], error);
        EXPECT_EQ(grantTree(n, error), expected);
        EXPECT_NE(windows.failedCall(), nullptr);
        expectAllIsGivenBack();
        if (expected.isSuccess() && !isPassedOver(calls[n - 1], error))
            expectGranted(walked.size());
        else
            expectGranted(pathsWritten());
        EXPECT_EQ(grantTree(), success);
        expectGranted(walked.size());
    });
    EXPECT_THAT(tally.functions(),
                testing::IsSupersetOf(
                    {"AllocateAndInitializeSid", "GetFileSecurityW", "GetSecurityDescriptorDacl",
                     "GetAclInformation", "GetAce", "InitializeSecurityDescriptor", "InitializeAcl",
                     "AddAccessAllowedAceEx", "AddAce", "IsValidAcl", "SetSecurityDescriptorDacl",
                     "SetFileSecurityW", "CreateFileW"}));
}

#if defined(__MINGW64__)
TEST_F(PermissionFailure, OfEachAllocationEndsTheWalkAndLeavesWhatWasGranted) {
    Tally tally("Allocations of granting a tree");
    // Boost.Filesystem itself reports that it has no room for a folder's entries.
    const Outcome noRoom{"filesystem_error", {{L"error", std::to_wstring(ENOMEM)}}, {}};
    std::size_t foldersWithoutRoom = 0;
    LibraryAllocations allocations;
    allocations.begin();
    EXPECT_EQ(grantTree(), success);
    failEachAllocation(tally, allocations.count(), [&](std::size_t n) {
        const std::size_t live = allocations.live();
        allocations.begin(n);
        const Outcome outcome = grantTree();
        EXPECT_TRUE(allocations.hasFailed());
        allocations.begin();
        foldersWithoutRoom += outcome == noRoom;
        EXPECT_TRUE(outcome == outOfMemory || outcome == noRoom) << testing::PrintToString(outcome);
        EXPECT_EQ(allocations.live(), live);
        expectAllIsGivenBack();
        expectGranted(pathsWritten());
        EXPECT_EQ(grantTree(), success);
        expectGranted(walked.size());
    });
    EXPECT_EQ(foldersWithoutRoom, 2u);
}
#endif

} // namespace
} // namespace torture
