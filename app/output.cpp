// What the program says: data on standard output, messages on standard error, both in UTF-8.
#include "output.h"

#include "failures.h"
#include "text.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

namespace updater {

namespace {

bool write(std::FILE* stream, std::wstring_view text) {
    const std::string utf8 = toUtf8(text);
    return std::fwrite(utf8.data(), 1, utf8.size(), stream) == utf8.size() &&
           std::fflush(stream) == 0;
}

bool isLowSurrogate(wchar_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// In characters; a surrogate pair is one.
std::size_t widthOf(std::wstring_view text) {
    return text.size() -
           static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isLowSurrogate));
}

} // namespace

Utf8Console::Utf8Console() : codePageBefore_(GetConsoleOutputCP()) {
    SetConsoleOutputCP(CP_UTF8);
}

Utf8Console::~Utf8Console() {
    if (codePageBefore_ != 0)
        SetConsoleOutputCP(codePageBefore_);
}

void writeData(std::wstring_view text) {
    if (!write(stdout, text))
        throw Failure(ExitCode::unexpected, L"standard output cannot be written");
}

void writeMessage(std::wstring_view line) {
    write(stderr, L"certstoreupdate: " + printable(line) + L"\n");
}

Table::Table(std::vector<std::wstring> headings) {
    rows_.push_back(std::move(headings));
}

void Table::add(std::vector<std::wstring> cells) {
    rows_.push_back(std::move(cells));
}

std::wstring Table::text() const {
    const std::vector<std::size_t> columns = widths();
    std::wstring text;
    for (const auto& row : rows_) {
        for (std::size_t column = 0; column + 1 < row.size(); ++column)
            text += row[column] + std::wstring(columns[column] - widthOf(row[column]) + 2, L' ');
        text += row.back() + L"\n";
    }
    return text;
}

std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> widths(rows_.front().size());
    for (const auto& row : rows_)
        for (std::size_t column = 0; column != row.size(); ++column)
            widths[column] = std::max(widths[column], widthOf(row[column]));
    return widths;
}

} // namespace updater
