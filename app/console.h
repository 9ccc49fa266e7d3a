// The two streams that the program writes to, as consoles if they are some.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace updater {

enum class Colour { plain, good, attention, bad, faint };

/// Text of one colour.
struct Span {
    std::wstring text;
    Colour colour = Colour::plain;
};
using Spans = std::vector<Span>;

/// Standard output or standard error. A console is given UTF-16, so that no code page loses a
/// character; anything else is given UTF-8. Colours are for consoles, and only if the environment
/// variable NO_COLOR is unset or empty (https://no-color.org).
class Stream {
public:
    static Stream standardOutput();
    static Stream standardError();

    bool isConsole() const noexcept { return console_ != nullptr; }
    /// Whether this is a console, and one that may be more than plain text.
    bool isColoured() const noexcept { return coloured_; }
    /// How many columns of text fit into a line; nothing if this is no console.
    std::optional<std::size_t> columns() const;

    /// \returns whether all of it was written
    bool write(std::wstring_view text) const { return write(text, Colour::plain); }
    bool write(Spans spans) const;

private:
    Stream(std::FILE* file, unsigned long standardHandle);
    bool write(std::wstring_view text, Colour colour) const;

    std::FILE* file_;
    void* console_; ///< HANDLE, not owned; null if this is no console
    bool coloured_;
};

/// How many columns of a console a text takes: two for a wide character of East Asia and for an
/// emoji (UAX #11), none for a mark that combines with the character before it.
std::size_t columnsOf(std::wstring_view text);

/// The longest beginning of a text that fits into so many columns, but at least one character of
/// it; no character is cut in two.
std::size_t lengthThatFits(std::wstring_view text, std::size_t columns);

} // namespace updater
