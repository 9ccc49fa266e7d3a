// How wide text is on a console.
#include "columns.h"

#include "text.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

namespace updater {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// Characters of two columns: East_Asian_Width W and F (UAX #11), in blocks.
constexpr Range wideRanges[] = {
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},
    {0x25FD, 0x25FE},   {0x2614, 0x2615},   {0x2648, 0x2653},   {0x26AA, 0x26AB},
    {0x26BD, 0x26BE},   {0x2753, 0x2755},   {0x2795, 0x2797},   {0x2B1B, 0x2B1C},
    {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},
    {0xA000, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},
    {0xFE10, 0xFE19},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},
    {0x16FE0, 0x18AFF}, {0x1B000, 0x1B2FF}, {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF},
    {0x1F7E0, 0x1F7EB}, {0x1F900, 0x1F9FF}, {0x1FA70, 0x1FAFF}, {0x20000, 0x3FFFD},
};

bool isWide(char32_t character) {
    const auto* const range =
        std::lower_bound(std::begin(wideRanges), std::end(wideRanges), character,
                         [](const Range& entry, char32_t value) { return entry.last < value; });
    return range != std::end(wideRanges) && range->first <= character;
}

bool isCombining(wchar_t unit) {
    WORD type = 0;
    return GetStringTypeW(CT_CTYPE3, &unit, 1, &type) && (type & C3_NONSPACING) != 0 &&
           (type & C3_ALPHA) == 0;
}

struct Character {
    std::size_t units;
    std::size_t columns;
};

/// The first character of a text that is not empty.
Character firstOf(std::wstring_view text) {
    if (text.size() > 1 && isSurrogatePair(text[0], text[1])) {
        const char32_t value = 0x10000 + ((text[0] - 0xD800U) << 10) + (text[1] - 0xDC00U);
        return {2, isWide(value) ? 2U : 1U};
    }
    if (isWide(text[0]))
        return {1, 2};
    return {1, isCombining(text[0]) ? 0U : 1U};
}

} // namespace

std::size_t columnsOf(std::wstring_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = firstOf(text);
        columns += character.columns;
        text.remove_prefix(character.units);
    }
    return columns;
}

std::size_t lengthThatFits(std::wstring_view text, std::size_t columns) {
    std::size_t length = 0;
    std::size_t taken = 0;
    while (length != text.size()) {
        const Character character = firstOf(text.substr(length));
        if (length != 0 && taken + character.columns > columns)
            break;
        taken += character.columns;
        length += character.units;
    }
    return length;
}

} // namespace updater
