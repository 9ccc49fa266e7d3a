// Permissions of one file or directory.
#include "mspermissions.h"

#include "filesecurity.h"
#include "temporaryfolder.h"
#include "thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using descriptors::canonical;
using mspermissions_test::failureOf;
using mspermissions_test::FileSecurity;
using mspermissions_test::Thrown;
using mspermissions_test::thrownBy;
using testing::IsEmpty;
using testing::SizeIs;
using testsupport::TemporaryFolder;

static_assert(!std::is_copy_constructible_v<SecurityDescriptorDacl> &&
              !std::is_copy_assignable_v<SecurityDescriptorDacl>);

const Thrown noDacl = {"CertStoreUpdaterError_InvalidConfiguration",
                       {{L"error", L"GetSecurityDescriptorDacl not found"}}};

/// A file whose DACL a test sets, and the package SID.
class Permissions : public ::testing::Test {
protected:
    void addPermissions(const std::filesystem::path& path) {
        MSPermissionsUtils::addPermissions(path.c_str(), sid);
    }
    bool hasPermissions(const std::wstring& sddl) {
        security.setDacl(file, sddl);
        const SecurityDescriptorDacl descriptor(file.native());
        return MSPermissionsUtils::hasPermissions(descriptor, sid);
    }

    const AnyPackageSid sid;
    const TemporaryFolder folder;
    const std::filesystem::path file = folder.makeFile("file.txt");
    FileSecurity security;
};

using HasPermissions = Permissions;

TEST_F(HasPermissions, IsFalseForAListWithoutEntries) {
    EXPECT_FALSE(hasPermissions(L"D:"));
}

TEST_F(HasPermissions, IsFalseIfOnlyOthersAreNamed) {
    EXPECT_FALSE(hasPermissions(L"D:(A;;FA;;;WD)(D;;FW;;;BG)(A;;FR;;;S-1-15-2-2)"));
}

TEST_F(HasPermissions, IsFalseForOnePackageOfAll) {
    EXPECT_FALSE(hasPermissions(L"D:(A;;FR;;;S-1-15-2-1-2-3-4-5-6-7)(A;;FR;;;S-1-15-2)"));
}

TEST_F(HasPermissions, FindsAnEntryWhereverItStands) {
    EXPECT_TRUE(hasPermissions(L"D:(A;;FR;;;S-1-15-2-1)(A;;FA;;;WD)"));
    EXPECT_TRUE(hasPermissions(L"D:(A;;FA;;;WD)(A;;FR;;;S-1-15-2-1)(A;;FA;;;BA)"));
    EXPECT_TRUE(hasPermissions(L"D:(A;;FA;;;WD)(A;;FA;;;BA)(A;;FR;;;S-1-15-2-1)"));
}

TEST_F(HasPermissions, CountsAnEntryThatDenies) {
    EXPECT_TRUE(hasPermissions(L"D:(D;;FA;;;S-1-15-2-1)(A;;FA;;;WD)"));
}

TEST_F(HasPermissions, CountsAnEntryWithOtherRightsOrFlags) {
    EXPECT_TRUE(hasPermissions(L"D:(A;;0x1;;;S-1-15-2-1)"));
    EXPECT_TRUE(hasPermissions(L"D:(A;OICIIO;FX;;;S-1-15-2-1)"));
    EXPECT_TRUE(hasPermissions(L"D:(A;OICINP;FR;;;S-1-15-2-1)"));
}

using AddPermissions = Permissions;

TEST_F(AddPermissions, GivesAListWithoutEntriesExactlyOne) {
    security.setDacl(file, L"D:");
    addPermissions(file);
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].sddl, canonical(L"D:(A;OICI;GR;;;S-1-15-2-1)"));
    EXPECT_EQ(security.dacl(file), canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)"));
}

TEST_F(AddPermissions, PutsTheEntryInFrontOfAllOthersAndKeepsTheirOrder) {
    // An order that Windows itself would not choose.
    security.setDacl(file, L"D:(A;ID;FA;;;WD)(D;;FW;;;BG)(A;OICIIO;FR;;;BA)(D;ID;FX;;;AU)");
    addPermissions(file);
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].sddl,
              canonical(L"D:(A;OICI;GR;;;S-1-15-2-1)(A;ID;FA;;;WD)(D;;FW;;;BG)(A;OICIIO;FR;;;BA)"
                        L"(D;ID;FX;;;AU)"));
    EXPECT_EQ(security.dacl(file),
              canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)(A;ID;FA;;;WD)(D;;FW;;;BG)(A;OICIIO;FR;;;BA)"
                        L"(D;ID;FX;;;AU)"));
}

TEST_F(AddPermissions, WritesTheDaclAlone) {
    security.setDacl(file, L"D:(A;;FA;;;WD)");
    addPermissions(file);
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].path, file.native());
    EXPECT_EQ(security.writes()[0].information, SECURITY_INFORMATION{DACL_SECURITY_INFORMATION});
}

TEST_F(AddPermissions, WritesAListThatIsNeitherProtectedNorMarkedAsInherited) {
    security.setDescriptor(file, descriptors::fromSddl(L"D:PAI(A;;FA;;;WD)"));
    addPermissions(file);
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].sddl, canonical(L"D:(A;OICI;GR;;;S-1-15-2-1)(A;;FA;;;WD)"));
    EXPECT_EQ(security.dacl(file), canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)(A;;FA;;;WD)"));
}

TEST_F(AddPermissions, LeavesAListProtectedThatNamesThePackagesAlready) {
    security.setDescriptor(file, descriptors::fromSddl(L"D:PAI(A;;FR;;;S-1-15-2-1)"));
    addPermissions(file);
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.dacl(file), canonical(L"D:PAI(A;;FR;;;S-1-15-2-1)"));
}

TEST_F(AddPermissions, ChangesNothingTheSecondTime) {
    security.setDacl(file, L"D:(A;;FA;;;WD)");
    addPermissions(file);
    const auto granted = security.descriptor(file);
    security.forgetCalls();
    addPermissions(file);
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.descriptor(file), granted);
}

TEST_F(AddPermissions, DoesNotWriteAFileThatNamesThePackagesAlready) {
    for (const wchar_t* sddl :
         {L"D:(A;;FR;;;S-1-15-2-1)", L"D:(D;;FA;;;S-1-15-2-1)", L"D:(A;;0x1;;;S-1-15-2-1)",
          L"D:(A;;FA;;;WD)(A;OICIIO;FX;;;S-1-15-2-1)"}) {
        security.setDacl(file, sddl);
        addPermissions(file);
        EXPECT_EQ(security.dacl(file), canonical(sddl));
    }
    EXPECT_THAT(security.writes(), IsEmpty());
}

TEST_F(AddPermissions, GrantsADirectoryButNotWhatIsInIt) {
    const auto inner = folder.makeFile("inner/inner.txt");
    security.setDacl(inner.parent_path(), L"D:(A;;FA;;;WD)");
    security.setDacl(inner, L"D:(A;;FA;;;WD)");
    addPermissions(inner.parent_path());
    EXPECT_EQ(security.dacl(inner.parent_path()),
              canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)(A;;FA;;;WD)"));
    EXPECT_EQ(security.dacl(inner), canonical(L"D:(A;;FA;;;WD)"));
}

TEST_F(AddPermissions, RefusesANullDacl) {
    const auto null = descriptors::descriptorWith({});
    security.setDescriptor(file, null);
    EXPECT_EQ(thrownBy([&] { addPermissions(file); }), noDacl);
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.descriptor(file), null);
}

TEST_F(AddPermissions, RefusesAFileWithoutADacl) {
    auto none = descriptors::descriptorWith({});
    none[2] &= static_cast<unsigned char>(~SE_DACL_PRESENT);
    security.setDescriptor(file, none);
    EXPECT_EQ(thrownBy([&] { addPermissions(file); }), noDacl);
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.descriptor(file), none);
}

TEST_F(AddPermissions, RefusesAListThatIsNotMarkedAsPresent) {
    security.setDacl(file, L"D:(A;;FA;;;WD)");
    mspermissions_test::SecurityHook<decltype(GetSecurityDescriptorDacl)> getDacl(
        "GetSecurityDescriptorDacl");
    getDacl.onCall(1, [&](auto descriptor, auto present, auto... others) {
        const BOOL done = getDacl.original(descriptor, present, others...);
        *present = FALSE;
        return done;
    });
    EXPECT_EQ(thrownBy([&] { addPermissions(file); }), noDacl);
    EXPECT_THAT(security.writes(), IsEmpty());
}

TEST_F(AddPermissions, ReportsAFileThatIsNotThere) {
    EXPECT_EQ(thrownBy([&] { addPermissions(folder.path() / "missing.txt"); }),
              failureOf(L"GetFileSecurity", ERROR_FILE_NOT_FOUND));
}

TEST_F(AddPermissions, ReportsADirectoryThatIsNotThere) {
    EXPECT_EQ(thrownBy([&] { addPermissions(folder.path() / "missing" / "file.txt"); }),
              failureOf(L"GetFileSecurity", ERROR_PATH_NOT_FOUND));
}

TEST_F(AddPermissions, ReportsAnEmptyPathAsTheSystemDoes) {
    DWORD needed = 0;
    ASSERT_FALSE(GetFileSecurityW(L"", DACL_SECURITY_INFORMATION, nullptr, 0, &needed));
    const DWORD error = GetLastError();
    EXPECT_EQ(thrownBy([&] { addPermissions(L""); }), failureOf(L"GetFileSecurity", error));
}

TEST_F(AddPermissions, FindsFilesWithNamesOutsideAscii) {
    const auto named = folder.makeFile(L"\u00FCber \u0416\u7F72/\U0001F600 \u00E9.txt");
    security.setDacl(named, L"D:(A;;FA;;;WD)");
    addPermissions(named);
    EXPECT_EQ(security.dacl(named), canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)(A;;FA;;;WD)"));
}

TEST_F(AddPermissions, HandsThePathOnAsGiven) {
    const std::wstring given = folder.path().native() + L"/./FILE.txt";
    ASSERT_NO_THROW(addPermissions(given));
    EXPECT_THAT(security.reads(), testing::ElementsAre(given));
    EXPECT_THAT(security.writtenPaths(), testing::ElementsAre(given));
}

TEST_F(AddPermissions, ThrowsWhatACallerCatchesAsTheLibrarysError) {
    EXPECT_THROW(addPermissions(folder.path() / "missing.txt"),
                 pkcs11::certstoreupdater::CertStoreUpdaterError);
}

using BuiltDacl = Permissions;

TEST_F(BuiltDacl, IsThatOfTheFileBehindTheNewEntry) {
    security.setDacl(file, L"D:(D;;FW;;;BG)(A;;FA;;;WD)");
    const SecurityDescriptorDacl current(file.native());
    const SecurityDescriptorDacl built(current, sid);
    EXPECT_TRUE(IsValidSecurityDescriptor(built.getSecurityDescriptor()));
    EXPECT_EQ(descriptors::toSddl(built.getSecurityDescriptor()),
              canonical(L"D:(A;OICI;GR;;;S-1-15-2-1)(D;;FW;;;BG)(A;;FA;;;WD)"));
    EXPECT_TRUE(MSPermissionsUtils::hasPermissions(built, sid));
    EXPECT_FALSE(MSPermissionsUtils::hasPermissions(current, sid));
}

TEST_F(BuiltDacl, OutlivesTheOneItWasBuiltFrom) {
    security.setDacl(file, L"D:(A;;FA;;;WD)");
    auto current = std::make_unique<SecurityDescriptorDacl>(file.native());
    const SecurityDescriptorDacl built(*current, sid);
    current.reset();
    EXPECT_EQ(descriptors::toSddl(built.getSecurityDescriptor()),
              canonical(L"D:(A;OICI;GR;;;S-1-15-2-1)(A;;FA;;;WD)"));
}

TEST_F(BuiltDacl, HasTheNewEntryAndTheOldOnesByteForByteAndNothingBehindThem) {
    security.setDacl(file, L"D:(D;;FW;;;BG)(A;;FA;;;WD)");
    const SecurityDescriptorDacl current(file.native());
    const auto before = descriptors::aclBytes(current.getDacl());
    const SecurityDescriptorDacl built(current, sid);
    const auto after = descriptors::aclBytes(built.getDacl());

    auto expected = descriptors::entries(before);
    expected.insert(expected.begin(), descriptors::entry(ACCESS_ALLOWED_ACE_TYPE, 3,
                                                         descriptors::maskAndSid(
                                                             0x80000000, descriptors::anyPackage)));
    EXPECT_EQ(descriptors::entries(after), expected);
    EXPECT_EQ(descriptors::hex({after.end() - 8, after.end()}), "00 00 00 00 00 00 00 00 ");
}

/// A named pipe: what keeps a DACL exactly under Wine, too, so that all calls are the system's.
class NamedPipe {
public:
    NamedPipe(const std::wstring& name, const std::wstring& sddl) {
        auto descriptor = descriptors::fromSddl(sddl);
        SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor.data(), FALSE};
        // Whoever opens the pipe takes an instance of it.
        for (int i = 0; i != 16; ++i)
            instances_.push_back(CreateNamedPipeW(
                name.c_str(), PIPE_ACCESS_DUPLEX | WRITE_DAC, PIPE_TYPE_BYTE | PIPE_NOWAIT,
                PIPE_UNLIMITED_INSTANCES, 16, 16, 0, &attributes));
    }
    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;
    ~NamedPipe() {
        for (const HANDLE instance : instances_)
            CloseHandle(instance);
    }

    bool isOpen() const { return instances_.front() != INVALID_HANDLE_VALUE; }

    std::wstring dacl() const {
        DWORD size = 0;
        GetKernelObjectSecurity(instances_.front(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
        descriptors::Bytes bytes(size);
        if (!GetKernelObjectSecurity(instances_.front(), DACL_SECURITY_INFORMATION, bytes.data(),
                                     size, &size))
            return L"error " + std::to_wstring(GetLastError());
        descriptors::mapGenericRights(bytes);
        return descriptors::toSddl(bytes.data());
    }

private:
    std::vector<HANDLE> instances_;
};

std::wstring pipeName() {
    return L"\\\\.\\pipe\\certstoreupdater test " + std::to_wstring(GetCurrentProcessId());
}

TEST(PermissionsOnRealCalls, AreAddedOnceInFrontOfTheOthers) {
    const NamedPipe pipe(pipeName(), L"D:(D;;0x100;;;BG)(A;;FA;;;WD)");
    ASSERT_TRUE(pipe.isOpen());
    const std::wstring granted =
        canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)(D;;0x100;;;BG)(A;;FA;;;WD)");
    const AnyPackageSid sid;
    MSPermissionsUtils::addPermissions(pipeName(), sid);
    EXPECT_EQ(pipe.dacl(), granted);
    MSPermissionsUtils::addPermissions(pipeName(), sid);
    EXPECT_EQ(pipe.dacl(), granted);
}

TEST(PermissionsOnRealCalls, TakeTheProtectionFromAList) {
    const NamedPipe pipe(pipeName(), L"D:P(A;;FA;;;WD)");
    ASSERT_TRUE(pipe.isOpen());
    ASSERT_EQ(pipe.dacl(), canonical(L"D:P(A;;FA;;;WD)"));
    const AnyPackageSid sid;
    MSPermissionsUtils::addPermissions(pipeName(), sid);
    EXPECT_EQ(pipe.dacl(), canonical(L"D:(A;OICI;FR;;;S-1-15-2-1)(A;;FA;;;WD)"));
}

TEST(PermissionsOnRealCalls, AreTakenByAFile) {
    const TemporaryFolder folder;
    const auto file = folder.makeFile("file.txt");
    const AnyPackageSid sid;
    EXPECT_NO_THROW(MSPermissionsUtils::addPermissions(file.c_str(), sid));
    EXPECT_NO_THROW(SecurityDescriptorDacl(file.native()));
    if (!mspermissions_test::filesKeepDacls())
        return;
    EXPECT_TRUE(MSPermissionsUtils::hasPermissions(SecurityDescriptorDacl(file.native()), sid));
}

TEST(PermissionsOnRealCalls, ServeSeveralThreadsOnDifferentFiles) {
    const TemporaryFolder folder;
    const AnyPackageSid sid;
    constexpr int threadCount = 4;
    std::vector<int> good(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i != threadCount; ++i)
        threads.emplace_back([&, i, file = folder.makeFile(std::to_wstring(i) + L".txt")] {
            for (int round = 0; round != 50; ++round) {
                MSPermissionsUtils::addPermissions(file.c_str(), sid);
                const SecurityDescriptorDacl current(file.native());
                const SecurityDescriptorDacl built(current, sid);
                good[static_cast<std::size_t>(i)] += MSPermissionsUtils::hasPermissions(built, sid);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(good, testing::Each(50));
}

} // namespace
