// The Windows functions that grant permissions: which are called in what order and with what, and
// what becomes of the failure of each.
#include "mspermissions.h"

#include "filesecurity.h"
#include "temporaryfolder.h"
#include "thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace {

using descriptors::Bytes;
using mspermissions_test::failureOf;
using mspermissions_test::FileSecurity;
using mspermissions_test::SecurityHook;
using mspermissions_test::thrownBy;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testsupport::TemporaryFolder;

/// A file with two entries, neither of them for the packages.
class PermissionCalls : public ::testing::Test {
protected:
    PermissionCalls() { security.setDacl(file, L"D:(D;;FW;;;BG)(A;;FA;;;WD)"); }

    void addPermissions() { MSPermissionsUtils::addPermissions(file.c_str(), sid); }
    std::size_t entrySize(std::size_t index) {
        return descriptors::entries(descriptors::aclBytes(security.descriptor(file).data()))
            .at(index)
            .size();
    }

    const AnyPackageSid sid;
    const TemporaryFolder folder;
    const std::filesystem::path file = folder.makeFile("file.txt");
    FileSecurity security;
};

TEST_F(PermissionCalls, ReadCompareBuildAndWriteInThisOrder) {
    testsupport::CallLog log;
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW", &log);
    SecurityHook<decltype(GetSecurityDescriptorDacl)> getDacl("GetSecurityDescriptorDacl", &log);
    SecurityHook<decltype(GetAclInformation)> getAclInformation("GetAclInformation", &log);
    SecurityHook<decltype(GetAce)> getAce("GetAce", &log);
    SecurityHook<decltype(EqualSid)> equalSid("EqualSid", &log);
    SecurityHook<decltype(InitializeSecurityDescriptor)> initialize("InitializeSecurityDescriptor",
                                                                    &log);
    SecurityHook<decltype(InitializeAcl)> initializeAcl("InitializeAcl", &log);
    SecurityHook<decltype(AddAccessAllowedAceEx)> addAllowed("AddAccessAllowedAceEx", &log);
    SecurityHook<decltype(AddAce)> addAce("AddAce", &log);
    SecurityHook<decltype(IsValidAcl)> isValidAcl("IsValidAcl", &log);
    SecurityHook<decltype(SetSecurityDescriptorDacl)> setDacl("SetSecurityDescriptorDacl", &log);
    SecurityHook<decltype(SetFileSecurityW)> setFileSecurity("SetFileSecurityW", &log);

    addPermissions();

    EXPECT_THAT(log.names(),
                ElementsAre("GetFileSecurityW", "GetFileSecurityW", "GetSecurityDescriptorDacl",
                            "GetAclInformation", "GetAce", "EqualSid", "GetAce", "EqualSid",
                            "InitializeSecurityDescriptor", "GetAclInformation", "InitializeAcl",
                            "AddAccessAllowedAceEx", "GetAce", "AddAce", "GetAce", "AddAce",
                            "IsValidAcl", "SetSecurityDescriptorDacl", "SetFileSecurityW"));
}

TEST_F(PermissionCalls, CompareNoFurtherThanTheFirstMatch) {
    security.setDacl(file, L"D:(A;;FA;;;WD)(A;;FR;;;S-1-15-2-1)(A;;FA;;;BA)");
    SecurityHook<decltype(GetAce)> getAce("GetAce");
    SecurityHook<decltype(InitializeSecurityDescriptor)> initialize("InitializeSecurityDescriptor");
    addPermissions();
    EXPECT_EQ(getAce.count(), 2u);
    EXPECT_EQ(initialize.count(), 0u);
}

TEST_F(PermissionCalls, LookAtNoEntryOfAnEmptyList) {
    security.setDacl(file, L"D:");
    SecurityHook<decltype(GetAce)> getAce("GetAce");
    SecurityHook<decltype(AddAce)> addAce("AddAce");
    addPermissions();
    EXPECT_EQ(getAce.count(), 0u);
    EXPECT_EQ(addAce.count(), 0u);
}

TEST_F(PermissionCalls, AskForTheLengthAndThenForExactlySoMuch) {
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW");
    addPermissions();
    const auto size = static_cast<DWORD>(security.descriptor(file).size());
    ASSERT_EQ(getFileSecurity.count(), 2u);
    EXPECT_EQ(getFileSecurity.argument<1>(1), 4u);
    EXPECT_EQ(getFileSecurity.argument<2>(1), nullptr);
    EXPECT_EQ(getFileSecurity.argument<3>(1), 0u);
    EXPECT_EQ(getFileSecurity.argument<1>(2), 4u);
    EXPECT_NE(getFileSecurity.argument<2>(2), nullptr);
    // The list that was written has grown by an entry of 24 and 8 unused bytes.
    EXPECT_EQ(getFileSecurity.argument<3>(2), size - 32);
}

TEST_F(PermissionCalls, DoNotMindWhatTheQuestionForTheLengthAnswers) {
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW");
    getFileSecurity.onCall(1, [&](auto... arguments) {
        getFileSecurity.original(arguments...);
        return TRUE;
    });
    getFileSecurity.onCall(3, [&](auto... arguments) {
        getFileSecurity.original(arguments...);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    EXPECT_NO_THROW(addPermissions());
    EXPECT_NO_THROW(addPermissions());
    EXPECT_EQ(getFileSecurity.count(), 4u);
}

TEST_F(PermissionCalls, ReadSizeInformationIntoARecordOfTwelveBytes) {
    SecurityHook<decltype(GetAclInformation)> getAclInformation("GetAclInformation");
    addPermissions();
    ASSERT_EQ(getAclInformation.count(), 2u);
    for (std::size_t n : {1u, 2u}) {
        EXPECT_EQ(getAclInformation.argument<2>(n), 12u);
        EXPECT_EQ(getAclInformation.argument<3>(n), AclSizeInformation);
    }
    EXPECT_EQ(getAclInformation.argument<0>(1), getAclInformation.argument<0>(2));
}

TEST_F(PermissionCalls, CompareTheBytesBehindTheMaskWithThePackageSid) {
    SecurityHook<decltype(GetAce)> getAce("GetAce");
    std::vector<const void*> found;
    getAce.replace([&](PACL acl, DWORD index, LPVOID* ace) {
        const BOOL done = getAce.original(acl, index, ace);
        found.push_back(*ace);
        return done;
    });
    SecurityHook<decltype(EqualSid)> equalSid("EqualSid");
    addPermissions();
    ASSERT_EQ(equalSid.count(), 2u);
    for (std::size_t n : {1u, 2u}) {
        EXPECT_EQ(equalSid.argument<0>(n), static_cast<const char*>(found[n - 1]) + 8);
        EXPECT_EQ(equalSid.argument<1>(n), sid.getSid());
    }
}

TEST_F(PermissionCalls, MakeAnAbsoluteDescriptorOfRevisionOne) {
    SecurityHook<decltype(InitializeSecurityDescriptor)> initialize("InitializeSecurityDescriptor");
    SecurityHook<decltype(SetFileSecurityW)> setFileSecurity("SetFileSecurityW");
    SECURITY_DESCRIPTOR_CONTROL control = SE_SELF_RELATIVE;
    setFileSecurity.onCall(1, [&](auto... arguments) {
        DWORD revision = 0;
        GetSecurityDescriptorControl(std::get<2>(std::tuple(arguments...)), &control, &revision);
        return setFileSecurity.original(arguments...);
    });
    addPermissions();
    ASSERT_EQ(initialize.count(), 1u);
    EXPECT_EQ(initialize.argument<1>(1), 1u);
    EXPECT_EQ(setFileSecurity.argument<1>(1), 4u);
    EXPECT_EQ(setFileSecurity.argument<2>(1), initialize.argument<0>(1));
    EXPECT_EQ(control, SE_DACL_PRESENT);
}

TEST_F(PermissionCalls, MakeAListTwoSidsLongerThanTheBytesInUse) {
    // 100 bytes of room that are not in use.
    const Bytes entry = descriptors::entry(ACCESS_ALLOWED_ACE_TYPE, 0,
                                           descriptors::maskAndSid(1, descriptors::everyone));
    security.setDescriptor(file, descriptors::descriptorWith(descriptors::acl(
                                     ACL_REVISION, {entry}, 8 + entry.size() + 100)));
    SecurityHook<decltype(InitializeAcl)> initializeAcl("InitializeAcl");
    addPermissions();
    ASSERT_EQ(initializeAcl.count(), 1u);
    EXPECT_EQ(initializeAcl.argument<1>(1), 8 + entry.size() + 32);
    EXPECT_EQ(initializeAcl.argument<2>(1), 2u);
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].acl.size(), 8 + entry.size() + 32);
    EXPECT_EQ(security.writes()[0].acl[0], ACL_REVISION);
}

TEST_F(PermissionCalls, AddAnInheritedEntryForGenericReadFirst) {
    SecurityHook<decltype(InitializeAcl)> initializeAcl("InitializeAcl");
    SecurityHook<decltype(AddAccessAllowedAceEx)> addAllowed("AddAccessAllowedAceEx");
    addPermissions();
    ASSERT_EQ(addAllowed.count(), 1u);
    EXPECT_EQ(addAllowed.argument<0>(1), initializeAcl.argument<0>(1));
    EXPECT_EQ(addAllowed.argument<1>(1), 2u);
    EXPECT_EQ(addAllowed.argument<2>(1), 3u);
    EXPECT_EQ(addAllowed.argument<3>(1), 0x80000000u);
    EXPECT_EQ(addAllowed.argument<4>(1), sid.getSid());
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(descriptors::hex(descriptors::entries(security.writes()[0].acl).at(0)),
              "00 03 18 00 00 00 00 80 " + descriptors::hex(descriptors::anyPackage));
}

TEST_F(PermissionCalls, CopyEachEntryToTheNextPlaceWithItsOwnLength) {
    const std::size_t sizes[] = {entrySize(0), entrySize(1)};
    SecurityHook<decltype(GetAce)> getAce("GetAce");
    SecurityHook<decltype(AddAce)> addAce("AddAce");
    addPermissions();
    ASSERT_EQ(getAce.count(), 4u);
    ASSERT_EQ(addAce.count(), 2u);
    for (std::size_t n : {1u, 2u}) {
        EXPECT_EQ(getAce.argument<1>(n + 2), n - 1);
        EXPECT_EQ(addAce.argument<1>(n), 2u);
        EXPECT_EQ(addAce.argument<2>(n), n);
        EXPECT_EQ(addAce.argument<4>(n), sizes[n - 1]);
    }
}

TEST_F(PermissionCalls, MakeAListOfRevisionTwoOfOneOfAnyRevision) {
    const Bytes entry = descriptors::entry(ACCESS_ALLOWED_ACE_TYPE, 0,
                                           descriptors::maskAndSid(1, descriptors::everyone));
    security.setDescriptor(file,
                           descriptors::descriptorWith(descriptors::acl(ACL_REVISION_DS, {entry})));
    SecurityHook<decltype(InitializeAcl)> initializeAcl("InitializeAcl");
    SecurityHook<decltype(AddAccessAllowedAceEx)> addAllowed("AddAccessAllowedAceEx");
    SecurityHook<decltype(AddAce)> addAce("AddAce");
    addPermissions();
    ASSERT_EQ(addAce.count(), 1u);
    EXPECT_EQ(initializeAcl.argument<2>(1), 2u);
    EXPECT_EQ(addAllowed.argument<1>(1), 2u);
    EXPECT_EQ(addAce.argument<1>(1), 2u);
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].acl[0], ACL_REVISION);
}

TEST_F(PermissionCalls, CheckAndAttachTheNewList) {
    SecurityHook<decltype(InitializeAcl)> initializeAcl("InitializeAcl");
    SecurityHook<decltype(IsValidAcl)> isValidAcl("IsValidAcl");
    SecurityHook<decltype(SetSecurityDescriptorDacl)> setDacl("SetSecurityDescriptorDacl");
    addPermissions();
    ASSERT_EQ(isValidAcl.count(), 1u);
    EXPECT_EQ(isValidAcl.argument<0>(1), initializeAcl.argument<0>(1));
    ASSERT_EQ(setDacl.count(), 1u);
    EXPECT_TRUE(setDacl.argument<1>(1));
    EXPECT_EQ(setDacl.argument<2>(1), initializeAcl.argument<0>(1));
    EXPECT_FALSE(setDacl.argument<3>(1));
}

TEST_F(PermissionCalls, CarryOverThatTheListIsADefault) {
    const Bytes list = descriptors::acl(ACL_REVISION, {});
    security.setDescriptor(file, descriptors::descriptorWith(list, SE_DACL_DEFAULTED));
    SecurityHook<decltype(SetSecurityDescriptorDacl)> setDacl("SetSecurityDescriptorDacl");
    addPermissions();
    ASSERT_EQ(setDacl.count(), 1u);
    EXPECT_TRUE(setDacl.argument<1>(1));
    EXPECT_TRUE(setDacl.argument<3>(1));
}

/// A Windows function whose n-th call fails, and the name under which that is reported.
struct Failure {
    std::string function;
    std::wstring method;
    std::size_t call;
    std::function<std::shared_ptr<void>(DWORD error)> inject;
};

template <class Function>
Failure failureInCall(std::size_t call, const char* function, const wchar_t* method) {
    return {function, method, call, [=](DWORD error) {
                auto hook = std::make_shared<SecurityHook<Function>>(function);
                hook->fail(call, FALSE, error);
                return std::shared_ptr<void>(hook);
            }};
}

class PermissionFailure : public PermissionCalls, public ::testing::WithParamInterface<Failure> {};

INSTANTIATE_TEST_SUITE_P(
    Functions, PermissionFailure,
    ::testing::Values(
        failureInCall<decltype(GetFileSecurityW)>(2, "GetFileSecurityW", L"GetFileSecurity"),
        failureInCall<decltype(GetSecurityDescriptorDacl)>(1, "GetSecurityDescriptorDacl",
                                                           L"GetSecurityDescriptorDacl"),
        failureInCall<decltype(GetAclInformation)>(1, "GetAclInformation", L"GetAclInformation"),
        failureInCall<decltype(GetAclInformation)>(2, "GetAclInformation", L"GetAclInformation"),
        failureInCall<decltype(GetAce)>(1, "GetAce", L"GetAce"),
        failureInCall<decltype(GetAce)>(2, "GetAce", L"GetAce"),
        failureInCall<decltype(GetAce)>(3, "GetAce", L"GetAce"),
        failureInCall<decltype(GetAce)>(4, "GetAce", L"GetAce"),
        failureInCall<decltype(InitializeSecurityDescriptor)>(1, "InitializeSecurityDescriptor",
                                                              L"InitializeSecurityDescriptor"),
        failureInCall<decltype(InitializeAcl)>(1, "InitializeAcl", L"InitializeAcl"),
        failureInCall<decltype(AddAccessAllowedAceEx)>(1, "AddAccessAllowedAceEx",
                                                       L"AddAccessAllowedAceEx"),
        failureInCall<decltype(AddAce)>(1, "AddAce", L"AddAce"),
        failureInCall<decltype(AddAce)>(2, "AddAce", L"AddAce"),
        failureInCall<decltype(IsValidAcl)>(1, "IsValidAcl", L"IsValidAcl"),
        failureInCall<decltype(SetSecurityDescriptorDacl)>(1, "SetSecurityDescriptorDacl",
                                                           L"SetSecurityDescriptorDacl"),
        failureInCall<decltype(SetFileSecurityW)>(1, "SetFileSecurityW", L"SetFileSecurity")),
    [](const auto& row) { return row.param.function + std::to_string(row.param.call); });

TEST_P(PermissionFailure, IsReportedByNameAndCodeAndLeavesTheFileAsItWas) {
    const Bytes before = security.descriptor(file);
    const auto hook = GetParam().inject(54321);
    EXPECT_EQ(thrownBy([&] { addPermissions(); }), failureOf(GetParam().method, 54321));
    EXPECT_EQ(security.descriptor(file), before);
    EXPECT_THAT(security.writes(), IsEmpty());
}

} // namespace
