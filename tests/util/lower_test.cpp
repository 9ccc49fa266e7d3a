// Lower-casing, compared with other implementations of Unicode's simple mapping.
#include "allocationcount.h"
#include "bufcodecs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cwctype>
#include <iterator>
#include <string>

using buffer::Buffer;
using buffer::Lower;
using buffer::TmpBuffer;

namespace {

unsigned lower(unsigned unit) {
    return static_cast<unsigned>(Lower<wchar_t>::apply(static_cast<wchar_t>(unit)));
}

/// One mapping of each kind of run: letters side by side, pairs, single ones, far ones.
struct Mapping {
    unsigned upper;
    unsigned lower;
};

constexpr Mapping sample[] = {
    {0x0041, 0x0061}, // A
    {0x005A, 0x007A}, // Z
    {0x00C0, 0x00E0}, // A with grave
    {0x00DE, 0x00FE}, // thorn
    {0x0100, 0x0101}, // A with macron
    {0x0130, 0x0069}, // I with dot above
    {0x0139, 0x013A}, // L with acute
    {0x0178, 0x00FF}, // Y with diaeresis
    {0x01C4, 0x01C6}, // DZ with caron
    {0x01C5, 0x01C6}, // Dz with caron, title case
    {0x0391, 0x03B1}, // alpha
    {0x03A3, 0x03C3}, // sigma
    {0x03F4, 0x03B8}, // capital theta symbol
    {0x0401, 0x0451}, // io
    {0x042F, 0x044F}, // ya
    {0x0531, 0x0561}, // ayb
    {0x10A0, 0x2D00}, // an, Khutsuri
    {0x1E9E, 0x00DF}, // sharp s
    {0x1FBC, 0x1FB3}, // alpha with prosgegrammeni
    {0x2126, 0x03C9}, // ohm sign
    {0x212A, 0x006B}, // kelvin sign
    {0x2160, 0x2170}, // roman numeral one
    {0x24B6, 0x24D0}, // circled A
    {0xA7B3, 0xAB53}, // chi
    {0xFF21, 0xFF41}, // fullwidth A
};

constexpr unsigned unmapped[] = {
    0x0000, 0x0030, 0x0040, 0x005B, 0x0061, 0x007A, 0x00D7, 0x00DF, 0x00F7, 0x0101, 0x0131,
    0x0149, 0x01F0, 0x03A2, 0x03C2, 0x0430, 0x0530, 0x0557, 0x05D0, 0x10C6, 0x4E00, 0xD7FF,
    0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFB00, 0xFF20, 0xFF3B, 0xFFFE, 0xFFFF,
};

} // namespace

TEST(Lower, MapsLettersOfEveryKind) {
    for (const Mapping& mapping : sample)
        EXPECT_EQ(lower(mapping.upper), mapping.lower) << std::hex << mapping.upper;
}

TEST(Lower, LeavesEverythingElseAsItIs) {
    for (const unsigned unit : unmapped)
        EXPECT_EQ(lower(unit), unit) << std::hex << unit;
}

TEST(Lower, ChangesNothingASecondTime) {
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit)
        ASSERT_EQ(lower(lower(unit)), lower(unit)) << std::hex << unit;
}

TEST(Lower, DoesNotFollowTheLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    for (const char* locale : {"C", "C.UTF-8", "tr_TR.UTF-8", ""}) {
        // A locale that is not installed leaves the one before, which is as good a trial.
        std::setlocale(LC_ALL, locale);
        EXPECT_EQ(lower(0x49), 0x69u);
        EXPECT_EQ(lower(0x410), 0x430u);
    }
    std::setlocale(LC_ALL, before.c_str());
}

#ifndef _WIN32
namespace {

/// Letters of Unicode 16, which came later than the mapping here.
bool isNewerLetter(unsigned unit) {
    constexpr unsigned letters[] = {0x1C89, 0xA7CB, 0xA7CC, 0xA7DA, 0xA7DC};
    return std::find(std::begin(letters), std::end(letters), unit) != std::end(letters);
}

} // namespace

TEST(Lower, AgreesWithTheCLibraryForAllOfTheBasicPlane) {
    const locale_t unicode = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
    ASSERT_NE(unicode, static_cast<locale_t>(nullptr));
    unsigned mapped = 0;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        const auto expected = static_cast<unsigned>(towlower_l(unit, unicode));
        if (!isNewerLetter(unit)) {
            EXPECT_EQ(lower(unit), expected) << std::hex << unit;
        }
        mapped += expected != unit;
    }
    // The C library really maps, rather than agreeing to map nothing.
    EXPECT_GT(mapped, 1000u);
    freelocale(unicode);
}
#endif

TEST(ToLower, MapsEveryUnitAndKeepsTheLength) {
    const Buffer<wchar_t> text(L"CN=\u00C4\u0416\u03A9 and \u4E00, MIXED Case 42");
    EXPECT_STREQ(buffer::toLower(text).c_str(), L"cn=\u00E4\u0436\u03C9 and \u4E00, mixed case 42");

    const wchar_t withZero[] = {L'A', 0, L'B'};
    const TmpBuffer<wchar_t> mapped = buffer::toLower(Buffer<wchar_t>(withZero, 3));
    EXPECT_EQ(std::wstring(mapped.begin(), mapped.end()), std::wstring(L"a\0b", 3));
}

TEST(ToLower, OfNothingIsEmptyAndNotNull) {
    EXPECT_TRUE(buffer::toLower({}).empty());
    EXPECT_FALSE(buffer::toLower({}).isNull());
}

TEST(ToLower, LeavesItsInputAlone) {
    const Buffer<wchar_t> text(L"TEXT OF MORE THAN FIFTEEN UNITS");
    const TmpBuffer<wchar_t> mapped = buffer::toLower(text);
    EXPECT_STREQ(text.c_str(), L"TEXT OF MORE THAN FIFTEEN UNITS");
    EXPECT_STREQ(mapped.c_str(), L"text of more than fifteen units");
}
