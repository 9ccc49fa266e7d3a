// Tables for people.
#pragma once

#include "console.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace updater {

/// Rows of cells, under headings or without.
class Table {
public:
    /// A table without headings.
    Table() = default;
    explicit Table(std::initializer_list<const wchar_t*> headings);

    /// \param cells as many as there are headings, or as in the first row; what could steer a
    ///   console is replaced
    void add(std::vector<Span> cells);

    bool empty() const noexcept { return rows_.size() == headings_; }
    /// \param columns what a line has room for: columns of the table that are too wide are then
    ///   broken into lines, and nothing is left out. Without it every row is one line.
    Spans layout(std::optional<std::size_t> columns) const;

private:
    using Row = std::vector<Span>;

    std::vector<std::size_t> widths(std::optional<std::size_t> columns) const;

    std::size_t headings_ = 0; ///< how many of the rows: one or none
    std::vector<Row> rows_;
};

} // namespace updater
