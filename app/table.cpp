// Tables for people.
#include "table.h"

#include "columns.h"
#include "text.h"

#include <algorithm>
#include <numeric>

namespace updater {

namespace {

constexpr std::size_t gap = 2;
// Narrower than this, a broken column is harder to read than a line that the console breaks.
constexpr std::size_t narrowest = 10;

using Lines = std::vector<std::wstring>;

/// Where a line that starts a text ends: behind a blank or comma if one is in reach, else where
/// there is no more room.
std::size_t endOfLine(std::wstring_view text, std::size_t width) {
    const std::size_t fits = lengthThatFits(text, width);
    if (fits == text.size() || text[fits] == L' ')
        return fits;
    const std::size_t blank = text.substr(0, fits).find_last_of(L" ,");
    return blank == std::wstring_view::npos || blank + 1 < fits / 2 ? fits : blank + 1;
}

Lines broken(std::wstring_view text, std::size_t width) {
    Lines lines;
    do {
        const std::size_t end = endOfLine(text, width);
        std::wstring_view line = text.substr(0, end);
        text.remove_prefix(end);
        line.remove_suffix(line.size() - std::min(line.size(), line.find_last_not_of(L' ') + 1));
        text.remove_prefix(std::min(text.size(), text.find_first_not_of(L' ')));
        lines.emplace_back(line);
    } while (!text.empty());
    return lines;
}

std::size_t sum(const std::vector<std::size_t>& widths) {
    return std::accumulate(widths.begin(), widths.end(), gap * (widths.size() - 1));
}

/// Takes from the widest columns that are wider than their floor, until the row fits or no column
/// has anything to give.
void shrink(std::vector<std::size_t>& widths, const std::vector<std::size_t>& floors,
            std::size_t columns) {
    for (std::size_t excess = sum(widths); excess > columns; --excess) {
        std::size_t widest = widths.size();
        for (std::size_t column = 0; column != widths.size(); ++column)
            if (widths[column] > floors[column] &&
                (widest == widths.size() || widths[column] > widths[widest]))
                widest = column;
        if (widest == widths.size())
            return;
        --widths[widest];
    }
}

/// The columns that the longest piece takes that lines are not broken in.
std::size_t longestPiece(std::wstring_view text) {
    std::size_t longest = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(L" ,"), text.size() - 1) + 1;
        longest = std::max(longest, columnsOf(text.substr(0, end)));
        text.remove_prefix(end);
    }
    return longest;
}

/// The lines of one row, each cell broken to the width of its column.
void append(Spans& text, const std::vector<Span>& row, const std::vector<std::size_t>& widths) {
    std::vector<Lines> cells;
    std::size_t height = 0;
    for (std::size_t column = 0; column != row.size(); ++column) {
        cells.push_back(broken(row[column].text, widths[column]));
        height = std::max(height, cells.back().size());
    }
    for (std::size_t line = 0; line != height; ++line) {
        std::wstring blanks;
        for (std::size_t column = 0; column != row.size(); ++column) {
            const bool isThere = line < cells[column].size() && !cells[column][line].empty();
            const std::wstring piece = isThere ? cells[column][line] : std::wstring();
            if (isThere) {
                text.push_back({blanks});
                text.push_back({piece, row[column].colour});
                blanks.clear();
            }
            blanks.append(widths[column] - std::min(widths[column], columnsOf(piece)) + gap, L' ');
        }
        text.push_back({L"\n"});
    }
}

} // namespace

Table::Table(std::initializer_list<const wchar_t*> headings) : headings_(1) {
    Row row;
    for (const wchar_t* const heading : headings)
        row.push_back({heading, Colour::faint});
    rows_.push_back(std::move(row));
}

void Table::add(std::vector<Span> cells) {
    for (Span& cell : cells)
        cell.text = printable(cell.text);
    rows_.push_back(std::move(cells));
}

Spans Table::layout(std::optional<std::size_t> columns) const {
    Spans text;
    if (rows_.empty())
        return text;
    const std::vector<std::size_t> fitted = widths(columns);
    for (const Row& row : rows_)
        append(text, row, fitted);
    return text;
}

std::vector<std::size_t> Table::widths(std::optional<std::size_t> columns) const {
    std::vector<std::size_t> widths(rows_.front().size(), 1);
    std::vector<std::size_t> pieces(widths.size(), narrowest);
    for (const Row& row : rows_)
        for (std::size_t column = 0; column != row.size(); ++column) {
            widths[column] = std::max(widths[column], columnsOf(row[column].text));
            pieces[column] = std::max(pieces[column], longestPiece(row[column].text));
        }
    if (columns) {
        shrink(widths, pieces, *columns);
        shrink(widths, std::vector(widths.size(), narrowest), *columns);
    }
    return widths;
}

} // namespace updater
