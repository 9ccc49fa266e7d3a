// The security identifier of all application packages.
#include "anypackagesid.h"

#include "descriptors.h"
#include "filesecurity.h"
#include "thrown.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>

namespace {

using mspermissions_test::failureOf;
using mspermissions_test::SecurityHook;
using mspermissions_test::thrownBy;

static_assert(!std::is_copy_constructible_v<AnyPackageSid> &&
              !std::is_copy_assignable_v<AnyPackageSid>);

TEST(AnyPackageSid, IsTheSixteenBytesOfAllApplicationPackages) {
    const AnyPackageSid sid;
    const auto* bytes = static_cast<const unsigned char*>(sid.getSid());
    EXPECT_EQ(sid.getLengthSid(), 16u);
    EXPECT_EQ(descriptors::hex({bytes, bytes + 16}), descriptors::hex(descriptors::anyPackage));
}

TEST(AnyPackageSid, IsWrittenByTheSystemAsS15_2_1) {
    const AnyPackageSid sid;
    EXPECT_TRUE(IsValidSid(sid.getSid()));
    LPWSTR text = nullptr;
    ASSERT_TRUE(ConvertSidToStringSidW(sid.getSid(), &text));
    EXPECT_EQ(std::wstring(text), L"S-1-15-2-1");
    LocalFree(text);
}

TEST(AnyPackageSid, IsMadeOfAuthority15AndTwoSubAuthorities) {
    SecurityHook<decltype(AllocateAndInitializeSid)> allocate("AllocateAndInitializeSid");
    std::array<unsigned char, 6> authority{};
    allocate.onCall(1, [&](auto... arguments) {
        std::memcpy(authority.data(), std::get<0>(std::tuple(arguments...))->Value, 6);
        return allocate.original(arguments...);
    });
    const AnyPackageSid sid;
    ASSERT_EQ(allocate.count(), 1u);
    EXPECT_EQ(authority, (std::array<unsigned char, 6>{0, 0, 0, 0, 0, 15}));
    EXPECT_EQ(allocate.argument<1>(1), 2);
    EXPECT_EQ(allocate.argument<2>(1), 2u);
    EXPECT_EQ(allocate.argument<3>(1), 1u);
}

TEST(AnyPackageSid, IsFreedOnce) {
    SecurityHook<decltype(FreeSid)> free("FreeSid");
    std::optional<AnyPackageSid> sid(std::in_place);
    void* const raw = sid->getSid();
    EXPECT_EQ(free.count(), 0u);
    sid.reset();
    ASSERT_EQ(free.count(), 1u);
    EXPECT_EQ(free.argument<0>(1), raw);
}

TEST(AnyPackageSid, ThrowsTheErrorOfAFailedAllocationAndFreesNothing) {
    SecurityHook<decltype(AllocateAndInitializeSid)> allocate("AllocateAndInitializeSid");
    SecurityHook<decltype(FreeSid)> free("FreeSid");
    allocate.fail(1, FALSE, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(thrownBy([] { AnyPackageSid sid; }),
              failureOf(L"AllocateAndInitializeSid", ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(free.count(), 0u);
}

TEST(AnyPackageSid, ShowsTheErrorAsAnUnsignedDecimalNumber) {
    SecurityHook<decltype(AllocateAndInitializeSid)> allocate("AllocateAndInitializeSid");
    allocate.fail(1, FALSE, 0xC0000022);
    const auto thrown = thrownBy([] { AnyPackageSid sid; });
    ASSERT_EQ(thrown.params.size(), 2u);
    EXPECT_EQ(thrown.params[1].second, L"3221225506");
}

} // namespace
