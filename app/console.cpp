// The two streams that the program writes to, as consoles if they are some.
#include "console.h"

#include "text.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace updater {

namespace {

// Consoles refuse what does not fit into a buffer of 64 KiB.
constexpr std::size_t longestConsoleWrite = 8192;

bool isHighSurrogate(wchar_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(wchar_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Whether a piece may end between these two.
bool isBoundary(wchar_t before, wchar_t behind) {
    return !(isHighSurrogate(before) && isLowSurrogate(behind));
}

/// A console that another program has changed may take a line feed alone for one line down.
std::wstring withCarriageReturns(std::wstring_view text) {
    std::wstring lines;
    for (const wchar_t unit : text) {
        if (unit == L'\n')
            lines += L'\r';
        lines += unit;
    }
    return lines;
}

bool writeToConsole(HANDLE console, std::wstring_view lines) {
    const std::wstring whole = withCarriageReturns(lines);
    std::wstring_view text = whole;
    while (!text.empty()) {
        std::size_t size = std::min(text.size(), longestConsoleWrite);
        if (size != text.size() && !isBoundary(text[size - 1], text[size]))
            --size;
        DWORD written = 0;
        if (!WriteConsoleW(console, text.data(), static_cast<DWORD>(size), &written, nullptr) ||
            written == 0)
            return false;
        text.remove_prefix(written);
    }
    return true;
}

bool writeToFile(std::FILE* file, std::wstring_view text) {
    const std::string utf8 = toUtf8(text);
    return std::fwrite(utf8.data(), 1, utf8.size(), file) == utf8.size() && std::fflush(file) == 0;
}

WORD attributesOf(Colour colour, WORD plain) {
    constexpr WORD foreground =
        FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
    const auto with = [plain](WORD colours) {
        return static_cast<WORD>((plain & ~foreground) | colours);
    };
    switch (colour) {
    case Colour::good:
        return with(FOREGROUND_GREEN);
    case Colour::attention:
        return with(FOREGROUND_RED | FOREGROUND_GREEN);
    case Colour::bad:
        return with(FOREGROUND_RED | FOREGROUND_INTENSITY);
    case Colour::faint:
        return with(FOREGROUND_INTENSITY);
    case Colour::plain:
        break;
    }
    return plain;
}

/// A console that writes in a colour for as long as the object lives.
class InColour {
public:
    InColour(HANDLE console, Colour colour) : console_(console) {
        CONSOLE_SCREEN_BUFFER_INFO info{};
        if (!GetConsoleScreenBufferInfo(console, &info))
            return;
        before_ = info.wAttributes;
        SetConsoleTextAttribute(console, attributesOf(colour, *before_));
    }
    InColour(const InColour&) = delete;
    InColour& operator=(const InColour&) = delete;
    ~InColour() {
        if (before_)
            SetConsoleTextAttribute(console_, *before_);
    }

private:
    HANDLE console_;
    std::optional<WORD> before_;
};

bool wantsColour() {
    wchar_t first = 0;
    // A value that does not fit is not empty either; its size is then what is returned.
    return GetEnvironmentVariableW(L"NO_COLOR", &first, 1) == 0;
}

HANDLE consoleOf(DWORD standardHandle) {
    const HANDLE handle = GetStdHandle(standardHandle);
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) ? handle : nullptr;
}

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
    if (text.size() > 1 && isHighSurrogate(text[0]) && isLowSurrogate(text[1])) {
        const char32_t value = 0x10000 + ((text[0] - 0xD800U) << 10) + (text[1] - 0xDC00U);
        return {2, isWide(value) ? 2U : 1U};
    }
    if (isWide(text[0]))
        return {1, 2};
    return {1, isCombining(text[0]) ? 0U : 1U};
}

} // namespace

Stream::Stream(std::FILE* file, unsigned long standardHandle)
    : file_(file), console_(consoleOf(standardHandle)), coloured_(console_ && wantsColour()) {}

Stream Stream::standardOutput() {
    return Stream(stdout, STD_OUTPUT_HANDLE);
}

Stream Stream::standardError() {
    return Stream(stderr, STD_ERROR_HANDLE);
}

std::optional<std::size_t> Stream::columns() const {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!console_ || !GetConsoleScreenBufferInfo(console_, &info))
        return std::nullopt;
    // What fills the last column moves some consoles to the next line, before the line's end does.
    return static_cast<std::size_t>(std::max<int>(info.srWindow.Right - info.srWindow.Left, 1));
}

bool Stream::write(Spans spans) const {
    // What needs no change of colour is written at once.
    std::size_t last = 0;
    for (std::size_t next = 1; next < spans.size(); ++next) {
        if (!coloured_ || spans[next].colour == spans[last].colour)
            spans[last].text += spans[next].text;
        else if (++last != next)
            spans[last] = std::move(spans[next]);
    }
    if (!spans.empty())
        spans.resize(last + 1);
    return std::all_of(spans.begin(), spans.end(),
                       [&](const Span& span) { return write(span.text, span.colour); });
}

bool Stream::write(std::wstring_view text, Colour colour) const {
    if (!console_)
        return writeToFile(file_, text);
    if (!coloured_ || colour == Colour::plain)
        return writeToConsole(console_, text);
    const InColour coloured(console_, colour);
    return writeToConsole(console_, text);
}

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
