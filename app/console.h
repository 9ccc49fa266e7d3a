// Standard output and standard error, each of which may be a console.
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

    /// Whether this is a console on which colours are wanted.
    bool isColoured() const noexcept { return coloured_; }
    /// How many columns of text fit on a line; nothing if this is no console.
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

} // namespace updater
