// Text as the program handles it: UTF-16 within, UTF-8 outside.
#include "text.h"

#include <windows.h>

#include <algorithm>

namespace updater {

namespace {

constexpr wchar_t replacementCharacter = L'\xFFFD';

bool isControl(wchar_t unit) {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0);
}

bool isLineOrParagraphSeparator(wchar_t unit) {
    return unit == 0x2028 || unit == 0x2029;
}

bool turnsDirection(wchar_t unit) {
    return unit == 0x061C || unit == 0x200E || unit == 0x200F ||
           (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}

} // namespace

std::string toUtf8(std::wstring_view text) {
    const int size = static_cast<int>(text.size());
    std::string utf8;
    utf8.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr)));
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, utf8.data(), static_cast<int>(utf8.size()),
                        nullptr, nullptr);
    return utf8;
}

std::wstring toWide(std::string_view utf8) {
    const int size = static_cast<int>(utf8.size());
    std::wstring text;
    text.resize(
        static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0)));
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, text.data(), static_cast<int>(text.size()));
    return text;
}

std::wstring printable(std::wstring_view text) {
    std::wstring result(text);
    std::replace_if(
        result.begin(), result.end(),
        [](wchar_t unit) {
            return isControl(unit) || isLineOrParagraphSeparator(unit) || turnsDirection(unit);
        },
        replacementCharacter);
    return result;
}

} // namespace updater
