// The text form in which the library records a certificate's binding.
#include "cspbinding.h"

#include "buffererror.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace pkcs11::certstoreupdater {
namespace {

std::string encode(const CspBinding& binding) {
    const Buffer<unsigned char> value = encodeKorvaneCspRef(binding);
    return std::string(value.begin(), value.end());
}

CspBinding decode(std::string_view value) {
    const std::basic_string<unsigned char> bytes(value.begin(), value.end());
    return decodeKorvaneCspRef({bytes.data(), bytes.size()});
}

TEST(KorvaneCspRef, IsTwoLinesWithoutATerminator) {
    EXPECT_EQ(encode({L"A", L"B"}), "A\nB\n");
    EXPECT_EQ(encode({L"", L""}), "\n\n");
}

TEST(KorvaneCspRef, EncodesEachUnitByItself) {
    EXPECT_EQ(encode({L"\u00E9", L"\u20AC"}), "\xC3\xA9\n\xE2\x82\xAC\n");
    const std::wstring surrogatePair{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(encode({surrogatePair, L""}), "\xED\xA0\xBD\xED\xB8\x80\n\n");
    EXPECT_EQ(decode("\xED\xA0\xBD\xED\xB8\x80\n\n").containerName, surrogatePair);
}

TEST(KorvaneCspRef, ReadsTheFirstTwoLines) {
    const CspBinding binding = decode("A\nB\n");
    EXPECT_EQ(binding.containerName, L"A");
    EXPECT_EQ(binding.cspName, L"B");
}

TEST(KorvaneCspRef, ReadsAMissingLineAsEmpty) {
    EXPECT_EQ(decode("").containerName, L"");
    EXPECT_EQ(decode("").cspName, L"");
    EXPECT_EQ(decode("A").containerName, L"A");
    EXPECT_EQ(decode("A").cspName, L"");
    EXPECT_EQ(decode("A\n").cspName, L"");
    EXPECT_EQ(decode("A\nB").cspName, L"B");
}

TEST(KorvaneCspRef, IgnoresWhatFollowsTheSecondLine) {
    EXPECT_EQ(decode("A\nB\nC\nD\n").cspName, L"B");
}

TEST(KorvaneCspRef, KeepsZerosCarriageReturnsAndBlanks) {
    using namespace std::string_view_literals;
    const CspBinding binding = decode(" A\r\nB\0C \n"sv);
    EXPECT_EQ(binding.containerName, L" A\r");
    EXPECT_EQ(binding.cspName, (std::wstring{L'B', L'\0', L'C', L' '}));
}

TEST(KorvaneCspRef, ReadsBackLongNames) {
    const CspBinding written{std::wstring(100000, L'\u00E9'), std::wstring(100000, L'y')};
    const CspBinding read = decode(encode(written));
    EXPECT_TRUE(read.containerName == written.containerName);
    EXPECT_TRUE(read.cspName == written.cspName);
}

TEST(KorvaneCspRef, ThrowsForBytesThatAreNotUtf8) {
    EXPECT_THROW(decode("A\nB\xC3"), buffer::BufferError_InvalidEncodingUnit);
    EXPECT_THROW(decode("A\nB\n\xFF"), buffer::BufferError_InvalidEncodingUnit);
}

TEST(CspBindingIsTo, ComparesExactly) {
    const CspBinding binding{L"container", L"CSP"};
    EXPECT_TRUE(binding.isTo(L"CSP", L"container"));
    EXPECT_FALSE(binding.isTo(L"csp", L"container"));
    EXPECT_FALSE(binding.isTo(L"CSP ", L"container"));
    EXPECT_FALSE(binding.isTo(L"CSP", L"Container"));
}

TEST(CspBindingIsTo, TakesAnyContainerForAnEmptyOne) {
    EXPECT_TRUE((CspBinding{L"container", L"CSP"}.isTo(L"CSP", L"")));
    EXPECT_FALSE((CspBinding{L"", L"CSP"}.isTo(L"CSP", L"container")));
}

} // namespace
} // namespace pkcs11::certstoreupdater
