// Standard output and standard error, each of which may be a console.
#include "console.h"

#include "text.h"

#include <windows.h>

#include <algorithm>
#include <utility>

namespace updater {

namespace {

// Consoles refuse to write more than about 64 KiB at once.
constexpr std::size_t longestConsoleWrite = 8192;

/// If another program has changed the console, a line feed alone may only move down a line.
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
        if (size != text.size() && isSurrogatePair(text[size - 1], text[size]))
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
    // On some consoles, filling the last column already moves to the next line.
    return static_cast<std::size_t>(std::max<int>(info.srWindow.Right - info.srWindow.Left, 1));
}

bool Stream::write(Spans spans) const {
    // Neighbours of one colour are written in one go.
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

} // namespace updater
