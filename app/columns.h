// How wide text is on a console.
#pragma once

#include <cstddef>
#include <string_view>

namespace updater {

/// How many columns of a console a text takes: two for a wide character of East Asia and for an
/// emoji (UAX #11), none for a mark that combines with the character before it.
std::size_t columnsOf(std::wstring_view text);

/// The longest beginning of a text that fits into so many columns, but at least one character of
/// it; no character is cut in two.
std::size_t lengthThatFits(std::wstring_view text, std::size_t columns);

} // namespace updater
