// Text as the program handles it: UTF-16 within, UTF-8 outside.
#pragma once

#include "buffer.h"

#include <string>
#include <string_view>

namespace updater {

/// Halves of surrogate pairs that stand alone become U+FFFD.
std::string toUtf8(std::wstring_view text);
/// Malformed sequences become U+FFFD.
std::wstring toWide(std::string_view utf8);

inline std::wstring toString(const buffer::GenericBuffer<wchar_t>& text) {
    return std::wstring(text.c_str(), text.size());
}

/// Whether two UTF-16 units are one character together.
inline bool isSurrogatePair(wchar_t first, wchar_t second) {
    return first >= 0xD800 && first <= 0xDBFF && second >= 0xDC00 && second <= 0xDFFF;
}

/// Names and labels come from tokens, stores and files. What could move a terminal's cursor,
/// break a line or turn the direction of writing becomes U+FFFD.
std::wstring printable(std::wstring_view text);

} // namespace updater
