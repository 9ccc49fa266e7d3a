// What the program says: data on standard output, messages on standard error, both in UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// For the time it lives consoles take UTF-8.
class Utf8Console {
public:
    Utf8Console();
    Utf8Console(const Utf8Console&) = delete;
    Utf8Console& operator=(const Utf8Console&) = delete;
    ~Utf8Console();

private:
    unsigned codePageBefore_;
};

/// Writes to standard output.
/// \throws Failure if it cannot be written
void writeData(std::wstring_view text);

/// Writes a line to standard error, behind the program's name.
void writeMessage(std::wstring_view line);

/// Rows under headings. Columns are as wide as they need to be.
class Table {
public:
    explicit Table(std::vector<std::wstring> headings);
    /// \param cells as many as there are headings
    void add(std::vector<std::wstring> cells);

    bool empty() const noexcept { return rows_.size() == 1; }
    /// A line for the headings, and one for each row.
    std::wstring text() const;

private:
    std::vector<std::size_t> widths() const;

    std::vector<std::vector<std::wstring>> rows_;
};

} // namespace updater
