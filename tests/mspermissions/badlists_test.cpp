// Access-control lists that are unusual, wrong or too large.
#include "mspermissions.h"

#include "documentedaddace.h"
#include "filesecurity.h"
#include "runningonwine.h"
#include "temporaryfolder.h"
#include "thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

using descriptors::anyPackage;
using descriptors::Bytes;
using descriptors::entry;
using descriptors::everyone;
using descriptors::operator+;
using descriptors::maskAndSid;
using mspermissions_test::DocumentedAddAce;
using mspermissions_test::failureOf;
using mspermissions_test::FileSecurity;
using mspermissions_test::SecurityHook;
using mspermissions_test::Thrown;
using mspermissions_test::thrownBy;
using testing::IsEmpty;
using testing::SizeIs;
using testsupport::TemporaryFolder;

const Bytes newEntry = entry(ACCESS_ALLOWED_ACE_TYPE, 3, maskAndSid(0x80000000, anyPackage));
const Bytes everyoneMayRead = entry(ACCESS_ALLOWED_ACE_TYPE, 0, maskAndSid(1, everyone));

/// The body of an object entry: mask, flags that announce both GUIDs, the GUIDs, a SID.
Bytes objectBody(const Bytes& sid) {
    return Bytes{1, 0, 0, 0, 3, 0, 0, 0} + Bytes(32, 0xEE) + sid;
}

Bytes withSizeField(Bytes ace, WORD size) {
    std::memcpy(ace.data() + offsetof(ACE_HEADER, AceSize), &size, sizeof size);
    return ace;
}

const Thrown nothing = {"nothing", {}};

/// A file whose descriptor a test makes byte by byte.
class UnusualList : public ::testing::Test {
protected:
    void setDescriptor(const Bytes& bytes) { security.setDescriptor(file, bytes); }
    void setList(const Bytes& list) { setDescriptor(descriptors::descriptorWith(list)); }
    void setEntries(const std::vector<Bytes>& entries, unsigned char revision = ACL_REVISION) {
        setList(descriptors::acl(revision, entries));
    }

    Thrown addPermissions() {
        return thrownBy([&] { MSPermissionsUtils::addPermissions(file.c_str(), sid); });
    }
    bool hasPermissions() {
        return MSPermissionsUtils::hasPermissions(SecurityDescriptorDacl(file.native()), sid);
    }

    /// The entries that the library wrote, in its only write.
    std::vector<Bytes> written() {
        if (security.writes().size() != 1)
            return {};
        return descriptors::entries(security.writes()[0].acl);
    }

    static std::vector<Bytes> behindTheNewEntry(std::vector<Bytes> entries) {
        entries.insert(entries.begin(), newEntry);
        return entries;
    }

    /// After an attempt that Windows may refuse.
    void expectKeptOrLeftAlone(const std::vector<Bytes>& entries, const Thrown& thrown) {
        if (thrown == nothing) {
            EXPECT_EQ(written(), behindTheNewEntry(entries));
            return;
        }
        ASSERT_THAT(thrown.params, SizeIs(2));
        EXPECT_THAT(thrown.params[0].second, testing::AnyOf(L"AddAce", L"IsValidAcl"));
        EXPECT_THAT(security.writes(), IsEmpty());
    }

    const AnyPackageSid sid;
    const TemporaryFolder folder;
    const std::filesystem::path file = folder.makeFile("file.txt");
    FileSecurity security;
};

TEST_F(UnusualList, MayHoldEntriesOfUnknownTypes) {
    const std::vector<Bytes> unknown = {
        entry(0x7F, 0xFF, maskAndSid(0xFFFFFFFF, everyone)), everyoneMayRead,
        entry(0xFE, 0, maskAndSid(0, everyone) + Bytes(40, 0xAB)), everyoneMayRead};
    setEntries(unknown);
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), behindTheNewEntry(unknown));
}

TEST_F(UnusualList, CountsAnEntryOfUnknownTypeThatNamesThePackages) {
    setEntries({everyoneMayRead, entry(0x7F, 0, maskAndSid(0, anyPackage) + Bytes(4, 0))});
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_THAT(security.writes(), IsEmpty());
}

TEST_F(UnusualList, TakesTheFlagsOfAnObjectEntryForNoSid) {
    setEntries({entry(ACCESS_ALLOWED_OBJECT_ACE_TYPE, 0, objectBody(anyPackage))}, ACL_REVISION_DS);
    EXPECT_FALSE(hasPermissions());
}

const std::vector<Bytes> objects = {entry(ACCESS_ALLOWED_OBJECT_ACE_TYPE, 0, objectBody(everyone)),
                                    everyoneMayRead,
                                    entry(ACCESS_DENIED_OBJECT_ACE_TYPE, 0, objectBody(everyone))};

TEST_F(UnusualList, KeepsObjectEntriesIfTheSystemTakesThem) {
    if (!testsupport::runningOnWine())
        GTEST_SKIP() << "Windows puts no object entry into a list of revision 2";
    setEntries(objects, ACL_REVISION_DS);
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), behindTheNewEntry(objects));
}

TEST_F(UnusualList, IsLeftAloneIfTheSystemRefusesItsObjectEntries) {
    setEntries(objects, ACL_REVISION_DS);
    const Bytes before = security.descriptor(file);
    const DocumentedAddAce documented;
    EXPECT_EQ(addPermissions(), failureOf(L"AddAce", ERROR_INVALID_PARAMETER));
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.descriptor(file), before);
}

TEST_F(UnusualList, TakesAnEntryTooSmallForTheSidForNoMatch) {
    for (std::size_t length = 4; length != 24; length += 4) {
        const Bytes whole = newEntry;
        const auto end = whole.begin() + static_cast<std::ptrdiff_t>(length);
        const Bytes small = withSizeField({whole.begin(), end}, static_cast<WORD>(length));
        setEntries({small, everyoneMayRead});
        EXPECT_FALSE(hasPermissions()) << length << " bytes";
    }
}

TEST_F(UnusualList, DoesNotReadASidBeyondItsLastEntry) {
    // The SID stands behind an entry that ends with the mask: outside of the list, and in it.
    const Bytes header = entry(ACCESS_ALLOWED_ACE_TYPE, 0, {1, 0, 0, 0});
    setDescriptor(
        descriptors::descriptorWith(descriptors::acl(ACL_REVISION, {header}), 0, anyPackage));
    EXPECT_FALSE(hasPermissions());
    setList(descriptors::acl(ACL_REVISION, {header}, 16) + anyPackage);
    EXPECT_FALSE(hasPermissions());
}

Bytes entryShorterThanItsSid() {
    Bytes tooManySubAuthorities = everyone;
    tooManySubAuthorities[offsetof(SID, SubAuthorityCount)] = 15;
    return entry(ACCESS_ALLOWED_ACE_TYPE, 0, maskAndSid(1, tooManySubAuthorities) + Bytes(8, 0));
}

// Of IsValidAcl it is documented only that it compares the number of entries with the length of the
// list (Microsoft, "IsValidAcl function"). Wine's does that, another may look at their SIDs too.

TEST_F(UnusualList, EitherKeepsAnEntryShorterThanItsSidOrIsLeftAlone) {
    setEntries({entryShorterThanItsSid()});
    SecurityHook<decltype(EqualSid)> equalSid("EqualSid");
    const Thrown thrown = addPermissions();
    EXPECT_EQ(equalSid.count(), 0u);
    expectKeptOrLeftAlone({entryShorterThanItsSid()}, thrown);
}

TEST_F(UnusualList, IsLeftAloneIfTheSystemFindsAnEntryShorterThanItsSid) {
    setEntries({entryShorterThanItsSid()});
    const Bytes before = security.descriptor(file);
    SecurityHook<decltype(EqualSid)> equalSid("EqualSid");
    SecurityHook<decltype(IsValidAcl)> isValidAcl("IsValidAcl");
    isValidAcl.fail(1, FALSE, ERROR_INVALID_ACL);
    EXPECT_EQ(addPermissions(), failureOf(L"IsValidAcl", ERROR_INVALID_ACL));
    EXPECT_EQ(equalSid.count(), 0u);
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.descriptor(file), before);
}

TEST_F(UnusualList, EitherKeepsEntriesOfOddLengthOrIsLeftAlone) {
    const std::vector<Bytes> odd = {
        entry(ACCESS_ALLOWED_ACE_TYPE, 0, maskAndSid(1, everyone) + Bytes(1, 0)), everyoneMayRead};
    setEntries(odd);
    expectKeptOrLeftAlone(odd, addPermissions());
}

TEST_F(UnusualList, MayFillWhatIsLeftOf64KiB) {
    // With the 32 bytes that are added the list is as long as one can be: 65532 bytes.
    const Bytes filler =
        entry(ACCESS_ALLOWED_ACE_TYPE, 0, maskAndSid(1, everyone) + Bytes(65500 - 8 - 20, 0));
    setEntries({filler});
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), (std::vector<Bytes>{newEntry, filler}));
    ASSERT_THAT(security.writes(), SizeIs(1));
    EXPECT_EQ(security.writes()[0].acl.size(), 65532u);
}

TEST_F(UnusualList, IsLeftAloneIfTheNewEntryWouldNotFitInto64KiB) {
    for (const std::size_t size : {65504u, 65508u, 65532u}) {
        setEntries(
            {entry(ACCESS_ALLOWED_ACE_TYPE, 0, maskAndSid(1, everyone) + Bytes(size - 8 - 20, 0))});
        const Bytes before = security.descriptor(file);
        EXPECT_EQ(addPermissions(), failureOf(L"InitializeAcl", ERROR_INVALID_PARAMETER)) << size;
        EXPECT_EQ(security.descriptor(file), before);
    }
    EXPECT_THAT(security.writes(), IsEmpty());
}

TEST_F(UnusualList, MayHoldThousandsOfEntries) {
    std::vector<Bytes> many(3000, everyoneMayRead);
    setEntries(many);
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), behindTheNewEntry(std::move(many)));
}

/// A descriptor that is wrong, and the functions that may find that out.
struct WrongDescriptor {
    std::string what;
    Bytes bytes;
    std::vector<std::wstring> methods;
};

Bytes listOf(const std::vector<Bytes>& entries) {
    return descriptors::descriptorWith(descriptors::acl(ACL_REVISION, entries));
}

Bytes withDaclOffset(Bytes descriptor, DWORD offset) {
    std::memcpy(descriptor.data() + offsetof(SECURITY_DESCRIPTOR_RELATIVE, Dacl), &offset,
                sizeof offset);
    return descriptor;
}

Bytes withListSize(Bytes descriptor, WORD size) {
    std::memcpy(descriptor.data() + sizeof(SECURITY_DESCRIPTOR_RELATIVE) + offsetof(ACL, AclSize),
                &size, sizeof size);
    return descriptor;
}

/// The same bytes, said to be those of an absolute descriptor.
Bytes asAbsolute(Bytes descriptor) {
    constexpr SECURITY_DESCRIPTOR_CONTROL control = SE_DACL_PRESENT;
    std::memcpy(descriptor.data() + offsetof(SECURITY_DESCRIPTOR_RELATIVE, Control), &control,
                sizeof control);
    return descriptor;
}

/// A list of two entries whose second ends before its length.
Bytes listEndingInAHeader() {
    Bytes list = descriptors::acl(ACL_REVISION, {everyoneMayRead}, 8 + everyoneMayRead.size() + 2);
    list[offsetof(ACL, AceCount)] = 2;
    return descriptors::descriptorWith(list);
}

class WrongList : public UnusualList, public ::testing::WithParamInterface<WrongDescriptor> {};

INSTANTIATE_TEST_SUITE_P(
    Descriptors, WrongList,
    ::testing::Values(
        WrongDescriptor{"LastEntryLongerThanTheList",
                        listOf({everyoneMayRead, withSizeField(everyoneMayRead, 24)}),
                        {L"GetAclInformation", L"GetAce"}},
        WrongDescriptor{"LastEntryOfTheGreatestLength",
                        listOf({everyoneMayRead, withSizeField(everyoneMayRead, 0xFFFF)}),
                        {L"GetAclInformation", L"GetAce"}},
        WrongDescriptor{"LastEntryShorterThanItsHeader",
                        listEndingInAHeader(),
                        {L"GetAclInformation", L"GetAce"}},
        WrongDescriptor{"EntryOfLengthZero",
                        listOf({withSizeField(everyoneMayRead, 0), everyoneMayRead}),
                        {L"GetAclInformation", L"GetAce"}},
        WrongDescriptor{"EntryShorterThanItsHeader",
                        listOf({withSizeField(everyoneMayRead, 3), everyoneMayRead}),
                        {L"GetAclInformation", L"GetAce"}},
        WrongDescriptor{"ListLongerThanTheDescriptor",
                        withListSize(listOf({everyoneMayRead}), 64),
                        {L"GetSecurityDescriptorDacl"}},
        WrongDescriptor{"ListShorterThanItsHeader",
                        withListSize(listOf({}), 7),
                        {L"GetSecurityDescriptorDacl"}},
        WrongDescriptor{"ListBehindTheDescriptor",
                        withDaclOffset(listOf({everyoneMayRead}), 0x10000),
                        {L"GetSecurityDescriptorDacl"}},
        WrongDescriptor{"ListHeaderAtTheEndOfTheDescriptor",
                        withDaclOffset(listOf({everyoneMayRead}), 44),
                        {L"GetSecurityDescriptorDacl"}},
        WrongDescriptor{
            "DescriptorShorterThanItsHeader", Bytes{1, 0, 4, 0x80}, {L"GetFileSecurity"}},
        WrongDescriptor{"DescriptorWithoutFlags", Bytes{1, 0}, {L"GetFileSecurity"}},
        WrongDescriptor{"AbsoluteDescriptorShorterThanItsHeader",
                        asAbsolute(listOf({})),
                        {L"GetFileSecurity"}}),
    [](const auto& row) { return row.param.what; });

TEST_P(WrongList, IsReportedAndNotWritten) {
    setDescriptor(GetParam().bytes);
    const Thrown thrown = addPermissions();
    ASSERT_THAT(thrown.params, SizeIs(2)) << thrown.name;
    EXPECT_EQ(thrown.params[0].first, L"Method");
    EXPECT_THAT(GetParam().methods, testing::Contains(thrown.params[0].second));
    EXPECT_EQ(thrown.params[1].first, L"error");
    EXPECT_NE(thrown.params[1].second, L"0");
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(security.descriptor(file), GetParam().bytes);
}

TEST_F(UnusualList, IsReadAgainByTheCallerIfItGrowsBetweenTheTwoReads) {
    setEntries({everyoneMayRead});
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW");
    getFileSecurity.onCall(1, [&](auto... arguments) {
        const BOOL done = getFileSecurity.original(arguments...);
        setEntries({everyoneMayRead, everyoneMayRead});
        return done;
    });
    EXPECT_EQ(addPermissions(), failureOf(L"GetFileSecurity", ERROR_INSUFFICIENT_BUFFER));
    EXPECT_THAT(security.writes(), IsEmpty());
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), (std::vector<Bytes>{newEntry, everyoneMayRead, everyoneMayRead}));
}

TEST_F(UnusualList, MayShrinkBetweenTheTwoReads) {
    setEntries({everyoneMayRead, everyoneMayRead});
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW");
    getFileSecurity.onCall(1, [&](auto... arguments) {
        const BOOL done = getFileSecurity.original(arguments...);
        setEntries({everyoneMayRead});
        return done;
    });
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), (std::vector<Bytes>{newEntry, everyoneMayRead}));
}

/// A file whose list Windows, or what stands in for it, keeps outside of the file's descriptor.
class ListElsewhere : public UnusualList {
protected:
    ListElsewhere() { setEntries({everyoneMayRead}); }

    PACL list() { return reinterpret_cast<PACL>(elsewhere.data()); }

    const std::vector<Bytes> entries = {
        entry(ACCESS_DENIED_ACE_TYPE, 3, maskAndSid(7, everyone)),
        entry(ACCESS_ALLOWED_ACE_TYPE, 0, maskAndSid(9, everyone) + Bytes(4, 0xAB))};
    const std::vector<Bytes> grantedEntries = {newEntry, entries[0], entries[1]};
    Bytes elsewhere = descriptors::acl(ACL_REVISION, entries);
};

TEST_F(ListElsewhere, IsTheOneThatGetSecurityDescriptorDaclGives) {
    SecurityHook<decltype(GetSecurityDescriptorDacl)> getDacl("GetSecurityDescriptorDacl");
    getDacl.replace([&](PSECURITY_DESCRIPTOR, LPBOOL present, PACL* dacl, LPBOOL defaulted) {
        *present = TRUE;
        *dacl = list();
        *defaulted = TRUE;
        return TRUE;
    });
    SecurityHook<decltype(SetSecurityDescriptorDacl)> setDacl("SetSecurityDescriptorDacl");
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), grantedEntries);
    EXPECT_TRUE(setDacl.argument<3>(1));
}

TEST_F(ListElsewhere, MayBelongToADescriptorThatHasNone) {
    setList({});
    SecurityHook<decltype(GetSecurityDescriptorDacl)> getDacl("GetSecurityDescriptorDacl");
    getDacl.onCall(1, [&](PSECURITY_DESCRIPTOR, LPBOOL present, PACL* dacl, LPBOOL) {
        *present = TRUE;
        *dacl = list();
        return TRUE;
    });
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), grantedEntries);
}

TEST_F(ListElsewhere, IsTheOneThatAnAbsoluteDescriptorPointsTo) {
    SECURITY_DESCRIPTOR absolute{};
    ASSERT_TRUE(InitializeSecurityDescriptor(&absolute, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&absolute, TRUE, list(), FALSE));
    const auto* bytes = reinterpret_cast<const unsigned char*>(&absolute);
    setDescriptor(Bytes(bytes, bytes + sizeof absolute));
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(written(), grantedEntries);
}

TEST_F(ListElsewhere, IsNotLookedForInADescriptorThatIsNotFilled) {
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity("GetFileSecurityW");
    getFileSecurity.replace(
        [](LPCWSTR, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR, DWORD, LPDWORD needed) {
            *needed = 200;
            return TRUE;
        });
    SecurityHook<decltype(GetSecurityDescriptorDacl)> getDacl("GetSecurityDescriptorDacl");
    Bytes given;
    getDacl.onCall(1, [&](PSECURITY_DESCRIPTOR descriptor, LPBOOL present, PACL* dacl, LPBOOL) {
        const auto* bytes = static_cast<const unsigned char*>(descriptor);
        given.assign(bytes, bytes + 200);
        *present = TRUE;
        *dacl = list();
        return TRUE;
    });
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_EQ(given, Bytes(200, 0));
    EXPECT_EQ(written(), grantedEntries);
}

TEST_F(ListElsewhere, MayBeThatOfTheEntriesAlone) {
    setEntries({everyoneMayRead, everyoneMayRead});
    std::vector<Bytes> copies = entries;
    SecurityHook<decltype(GetAce)> getAce("GetAce");
    getAce.replace([&](PACL, DWORD index, LPVOID* ace) {
        *ace = copies.at(index).data();
        return TRUE;
    });
    EXPECT_EQ(addPermissions(), nothing);
    // The list has room for the entries that it had.
    EXPECT_EQ(written(), grantedEntries);
}

TEST_F(UnusualList, CountsAnEntryElsewhereThatNamesThePackages) {
    setEntries({everyoneMayRead});
    Bytes names = entry(ACCESS_DENIED_ACE_TYPE, 0, maskAndSid(1, anyPackage));
    SecurityHook<decltype(GetAce)> getAce("GetAce");
    getAce.replace([&](PACL, DWORD, LPVOID* ace) {
        *ace = names.data();
        return TRUE;
    });
    EXPECT_TRUE(hasPermissions());
    EXPECT_EQ(addPermissions(), nothing);
    EXPECT_THAT(security.writes(), IsEmpty());
}

} // namespace
