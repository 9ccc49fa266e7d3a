// Thousands of security descriptors, most of them malformed, made from a fixed seed: the library
// hands Windows only what lies in the descriptor, writes only lists that are whole, and says of all
// others which function found them wrong.
#include "mspermissions.h"

#include "documentedaddace.h"
#include "filesecurity.h"
#include "runningonwine.h"
#include "thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

namespace {

using descriptors::anyPackage;
using descriptors::Bytes;
using descriptors::everyone;
using descriptors::operator+;
using mspermissions_test::DocumentedAddAce;
using mspermissions_test::failureOf;
using mspermissions_test::hasObjectEntries;
using mspermissions_test::SecurityHook;
using mspermissions_test::Thrown;
using mspermissions_test::thrownBy;

/// The same numbers with every compiler.
class Dice {
public:
    /// 0 to `below` - 1.
    std::size_t roll(std::size_t below) { return engine_() % below; }
    template <class Value>
    Value oneOf(std::initializer_list<Value> values) {
        return values.begin()[roll(values.size())];
    }
    Bytes bytes(std::size_t count) {
        Bytes bytes;
        for (std::size_t i = 0; i != count; ++i)
            bytes.push_back(static_cast<unsigned char>(roll(256)));
        return bytes;
    }

private:
    std::mt19937 engine_{20'101}; // a failure shall come again
};

Bytes randomEntry(Dice& dice) {
    Bytes sid = everyone;
    if (dice.roll(8) == 0)
        sid = anyPackage;
    else if (dice.roll(4) == 0) {
        const std::size_t subAuthorities = dice.roll(16);
        sid = Bytes{1, static_cast<unsigned char>(subAuthorities)} +
              dice.bytes(6 + 4 * subAuthorities);
    }
    const auto type = static_cast<unsigned char>(dice.oneOf({0, 0, 0, 1, 1, 5, 9, 0x7F}));
    const auto mask = static_cast<std::uint32_t>(dice.roll(1u << 31));
    return descriptors::entry(type, static_cast<unsigned char>(dice.roll(32)),
                              descriptors::maskAndSid(mask, sid) + Bytes(4 * dice.roll(3), 0));
}

constexpr std::size_t descriptorSize = sizeof(SECURITY_DESCRIPTOR_RELATIVE);

/// A list that is whole, behind the header of the descriptor.
Bytes randomDescriptor(Dice& dice) {
    std::vector<Bytes> entries(dice.roll(6));
    std::generate(entries.begin(), entries.end(), [&] { return randomEntry(dice); });
    std::size_t size = sizeof(ACL);
    for (const Bytes& entry : entries)
        size += entry.size();
    const std::size_t spare = 4 * dice.roll(4);
    return descriptors::descriptorWith(descriptors::acl(ACL_REVISION, entries, size + spare) +
                                           Bytes(spare, 0),
                                       0, Bytes(4 * dice.roll(4), 0));
}

template <class Value>
void put(Bytes& bytes, std::size_t offset, Value value) {
    if (offset + sizeof value <= bytes.size())
        std::memcpy(bytes.data() + offset, &value, sizeof value);
}

template <class Value>
Value valueIn(const Bytes& bytes, std::size_t offset) {
    Value value{};
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

/// Where the entries of a descriptor made here begin, until one has no length.
std::vector<std::size_t> entryOffsets(const Bytes& descriptor) {
    std::vector<std::size_t> offsets;
    std::size_t offset = descriptorSize + sizeof(ACL);
    while (offset + sizeof(ACE_HEADER) <= descriptor.size()) {
        const WORD size = valueIn<WORD>(descriptor, offset + offsetof(ACE_HEADER, AceSize));
        if (size == 0)
            break;
        offsets.push_back(offset);
        offset += size;
    }
    return offsets;
}

void damage(Bytes& descriptor, Dice& dice) {
    const auto size = static_cast<DWORD>(descriptor.size());
    const std::vector<std::size_t> entries = entryOffsets(descriptor);
    const std::size_t entry = entries.empty() ? descriptorSize : entries[dice.roll(entries.size())];
    switch (dice.roll(7)) {
    case 0:
        if (!descriptor.empty())
            descriptor[dice.roll(descriptor.size())] ^=
                static_cast<unsigned char>(1 << dice.roll(8));
        break;
    case 1:
        put(descriptor, entry + offsetof(ACE_HEADER, AceSize),
            dice.oneOf<WORD>({0, 1, 3, 4, 7, 8, 12, 20, 21, 0x7FFF, 0xFFFC, 0xFFFF}));
        break;
    case 2:
        put(descriptor, descriptorSize + offsetof(ACL, AclSize),
            dice.oneOf<WORD>({0, 4, 7, 8, 9, 28, static_cast<WORD>(size - descriptorSize),
                              static_cast<WORD>(size - descriptorSize + 1), 0xFFFF}));
        break;
    case 3:
        put(descriptor, descriptorSize + offsetof(ACL, AceCount),
            dice.oneOf<WORD>({0, 1, static_cast<WORD>(entries.size() + 1), 200, 0xFFFF}));
        break;
    case 4:
        put(descriptor, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Dacl),
            dice.oneOf<DWORD>({0, 1, 4, descriptorSize + 1, size - 8, size - 7, size, size + 1,
                               0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFFF}));
        break;
    case 5:
        descriptor.resize(dice.roll(descriptor.size() + 1));
        break;
    default:
        // The number of sub-authorities of the SID.
        put(descriptor, entry + 8 + offsetof(SID, SubAuthorityCount),
            static_cast<unsigned char>(dice.roll(256)));
        break;
    }
}

/// Of an absolute descriptor nobody can tell whether its pointer is right; GetFileSecurityW
/// promises a self-relative one.
void makeSelfRelative(Bytes& descriptor) {
    constexpr std::size_t offset = offsetof(SECURITY_DESCRIPTOR_RELATIVE, Control);
    if (descriptor.size() >= offset + sizeof(SECURITY_DESCRIPTOR_CONTROL))
        put<SECURITY_DESCRIPTOR_CONTROL>(descriptor, offset,
                                         valueIn<SECURITY_DESCRIPTOR_CONTROL>(descriptor, offset) |
                                             SE_SELF_RELATIVE);
}

/// A list as a reader sees it that trusts no length.
struct PlainList {
    std::vector<Bytes> entries; ///< as many as are whole
    bool isWhole = false;       ///< all that its header announces are

    bool namesThePackages() const {
        return std::any_of(entries.begin(), entries.end(), [](const Bytes& entry) {
            return entry.size() >= 8 + anyPackage.size() &&
                   std::equal(anyPackage.begin(), anyPackage.end(), entry.begin() + 8);
        });
    }
};

/// The list of a self-relative descriptor, or none if it does not lie in the descriptor.
std::optional<PlainList> plainList(const Bytes& descriptor) {
    if (descriptor.size() < descriptorSize)
        return std::nullopt;
    const std::size_t begin =
        valueIn<DWORD>(descriptor, offsetof(SECURITY_DESCRIPTOR_RELATIVE, Dacl));
    if (begin > descriptor.size() || descriptor.size() - begin < sizeof(ACL))
        return std::nullopt;
    const auto header = valueIn<ACL>(descriptor, begin);
    if (header.AclSize < sizeof(ACL) || descriptor.size() - begin < header.AclSize)
        return std::nullopt;
    PlainList list;
    const std::size_t end = begin + header.AclSize;
    for (std::size_t offset = begin + sizeof(ACL); list.entries.size() != header.AceCount;) {
        if (end - offset < sizeof(ACE_HEADER))
            return list;
        const WORD size = valueIn<WORD>(descriptor, offset + offsetof(ACE_HEADER, AceSize));
        if (size < sizeof(ACE_HEADER) || end - offset < size)
            return list;
        const auto first = descriptor.begin() + static_cast<std::ptrdiff_t>(offset);
        list.entries.emplace_back(first, first + size);
        offset += size;
    }
    list.isWhole = true;
    return list;
}

/// The library between a descriptor of the test's choice and a file that does not exist.
class RandomList : public ::testing::Test {
protected:
    RandomList() {
        getFileSecurity.replace([this](auto... arguments) { return get(arguments...); });
        setFileSecurity.replace([this](LPCWSTR, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR given) {
            written.push_back(descriptors::entries(descriptors::aclBytes(given)));
            return TRUE;
        });
        equalSid.replace([this](PSID named, PSID packages) {
            const auto* begin = static_cast<const unsigned char*>(named);
            expectInDescriptor(begin, offsetof(SID, SubAuthority));
            expectInDescriptor(begin, offsetof(SID, SubAuthority) +
                                          begin[offsetof(SID, SubAuthorityCount)] * sizeof(DWORD));
            return equalSid.original(named, packages);
        });
        addAce.replace([this](PACL to, DWORD revision, DWORD index, LPVOID entry, DWORD size) {
            expectInDescriptor(static_cast<const unsigned char*>(entry), size);
            return addAce.original(to, revision, index, entry, size);
        });
        // Wine adds up the lengths of all entries, wherever that leads. Windows stops at the end.
        if (testsupport::runningOnWine())
            getAclInformation.replace(
                [this](PACL list, LPVOID information, DWORD size, ACL_INFORMATION_CLASS kind) {
                    if (isWalkedBeyondItsEnd(list)) {
                        SetLastError(ERROR_INVALID_PARAMETER);
                        return FALSE;
                    }
                    return getAclInformation.original(list, information, size, kind);
                });
    }

    /// Grants once; returns what was thrown.
    Thrown grant(const Bytes& newDescriptor) {
        descriptor = newDescriptor;
        written.clear();
        return thrownBy([&] { MSPermissionsUtils::addPermissions(L"C:\\none", sid); });
    }

    void expectRightAnswer(const Thrown& thrown) const {
        const std::optional<PlainList> list = plainList(descriptor);
        if (thrown.name != "nothing") {
            EXPECT_TRUE(written.empty());
            expectCompleteError(thrown);
        } else if (written.empty())
            EXPECT_TRUE(list && list->namesThePackages());
        else
            expectWritten(list);
    }

    const AnyPackageSid sid;
    Bytes descriptor;
    std::vector<std::vector<Bytes>> written;

private:
    BOOL get(LPCWSTR, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR buffer, DWORD size,
             LPDWORD needed) {
        *needed = static_cast<DWORD>(descriptor.size());
        if (size < descriptor.size() || !buffer) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        handedOut = static_cast<unsigned char*>(buffer);
        if (!descriptor.empty())
            std::memcpy(buffer, descriptor.data(), descriptor.size());
        return TRUE;
    }

    void expectInDescriptor(const unsigned char* begin, std::size_t size) const {
        ASSERT_GE(begin, handedOut);
        ASSERT_LE(begin, handedOut + descriptor.size());
        EXPECT_LE(size, static_cast<std::size_t>(handedOut + descriptor.size() - begin));
    }

    static bool isWalkedBeyondItsEnd(const void* list) {
        ACL header{};
        std::memcpy(&header, list, sizeof header); // it may stand at an odd address
        const auto* begin = static_cast<const unsigned char*>(list);
        const Bytes bytes(begin, begin + header.AclSize);
        std::size_t offset = sizeof header;
        for (WORD i = 0; i != header.AceCount; ++i) {
            if (bytes.size() < offset + sizeof(ACE_HEADER))
                return true;
            offset += valueIn<WORD>(bytes, offset + offsetof(ACE_HEADER, AceSize));
        }
        return false;
    }

    static void expectCompleteError(const Thrown& thrown) {
        EXPECT_EQ(thrown.name, "CertStoreUpdaterError_InvalidConfiguration");
        if (thrown.params ==
            mspermissions_test::Params{{L"error", L"GetSecurityDescriptorDacl not found"}})
            return;
        ASSERT_EQ(thrown.params.size(), 2u);
        EXPECT_EQ(thrown.params[0].first, L"Method");
        EXPECT_THAT(thrown.params[0].second,
                    testing::AnyOf(L"GetFileSecurity", L"GetSecurityDescriptorDacl",
                                   L"GetAclInformation", L"GetAce", L"InitializeAcl",
                                   L"AddAccessAllowedAceEx", L"AddAce", L"IsValidAcl"));
        EXPECT_EQ(thrown.params[1].first, L"error");
        // IsValidAcl is documented to leave no error code.
        if (thrown.params[0].second != L"IsValidAcl") {
            EXPECT_NE(thrown.params[1].second, L"0");
        }
    }

    void expectWritten(const std::optional<PlainList>& list) const {
        ASSERT_TRUE(list && list->isWhole);
        EXPECT_FALSE(list->namesThePackages());
        std::vector<Bytes> expected = list->entries;
        expected.insert(expected.begin(),
                        descriptors::entry(ACCESS_ALLOWED_ACE_TYPE, 3,
                                           descriptors::maskAndSid(0x8000'0000, anyPackage)));
        EXPECT_THAT(written, testing::ElementsAre(expected));
    }

    unsigned char* handedOut = nullptr;
    SecurityHook<decltype(GetFileSecurityW)> getFileSecurity{"GetFileSecurityW"};
    SecurityHook<decltype(SetFileSecurityW)> setFileSecurity{"SetFileSecurityW"};
    SecurityHook<decltype(EqualSid)> equalSid{"EqualSid"};
    SecurityHook<decltype(AddAce)> addAce{"AddAce"};
    SecurityHook<decltype(GetAclInformation)> getAclInformation{"GetAclInformation"};
};

class RandomWholeList : public RandomList {
protected:
    /// Grants hundreds of lists without a mistake, some of them with object entries.
    void expectAnswers(bool systemTakesObjectEntries) {
        for (int i = 0; i != 500 && !HasFailure(); ++i) {
            const Bytes whole = randomDescriptor(dice);
            SCOPED_TRACE(descriptors::hex(whole));
            const PlainList list = plainList(whole).value();
            const Thrown thrown = grant(whole);
            if (!systemTakesObjectEntries && hasObjectEntries(list.entries) &&
                !list.namesThePackages()) {
                EXPECT_EQ(thrown, failureOf(L"AddAce", ERROR_INVALID_PARAMETER));
                ++refusals;
            } else
                EXPECT_EQ(thrown.name, "nothing") << ::testing::PrintToString(thrown.params);
            expectRightAnswer(thrown);
            writes += written.size();
        }
        EXPECT_GT(writes + refusals, 250u);
        EXPECT_LT(writes + refusals, 500u) << "no list names the packages already";
    }

    Dice dice;
    std::size_t writes = 0;
    std::size_t refusals = 0;
};

TEST_F(RandomWholeList, IsGranted) {
    expectAnswers(testsupport::runningOnWine());
    EXPECT_GT(writes, 150u);
}

TEST_F(RandomWholeList, IsGrantedUnlessTheSystemRefusesItsObjectEntries) {
    const DocumentedAddAce documented;
    expectAnswers(false);
    EXPECT_GT(writes, 150u);
    EXPECT_GT(refusals, 50u);
}

TEST_F(RandomList, IsWrittenWholeOrNotAtAll) {
    Dice dice;
    std::size_t writes = 0;
    std::size_t errors = 0;
    for (int i = 0; i != 20'000 && !HasFailure(); ++i) {
        Bytes damaged = randomDescriptor(dice);
        for (std::size_t times = 1 + dice.roll(3); times != 0; --times)
            damage(damaged, dice);
        makeSelfRelative(damaged);
        SCOPED_TRACE(descriptors::hex(damaged));
        const Thrown thrown = grant(damaged);
        expectRightAnswer(thrown);
        writes += written.size();
        errors += thrown.name != "nothing";
    }
    // All three answers are met often.
    EXPECT_GT(writes, 2'000u);
    EXPECT_GT(errors, 4'000u);
    EXPECT_GT(20'000 - writes - errors, 500u);
}

} // namespace
