// "Did you mean ...?"
#include "suggestion.h"

#include <algorithm>
#include <cstddef>

namespace updater {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The least number of slips that turn one text into the other (optimal string alignment).
std::size_t slipsBetween(const std::string& a, const std::string& b) {
    using Line = std::vector<std::size_t>;
    Line beforeLast(b.size() + 1);
    Line last(b.size() + 1);
    Line current(b.size() + 1);
    for (std::size_t column = 0; column <= b.size(); ++column)
        last[column] = column;
    for (std::size_t row = 1; row <= a.size(); ++row) {
        current[0] = row;
        for (std::size_t column = 1; column <= b.size(); ++column) {
            const bool same = lower(a[row - 1]) == lower(b[column - 1]);
            current[column] = std::min(
                {last[column] + 1, current[column - 1] + 1, last[column - 1] + (same ? 0U : 1U)});
            const bool swapped = row > 1 && column > 1 &&
                                 lower(a[row - 1]) == lower(b[column - 2]) &&
                                 lower(a[row - 2]) == lower(b[column - 1]);
            if (swapped)
                current[column] = std::min(current[column], beforeLast[column - 2] + 1);
        }
        beforeLast.swap(last);
        last.swap(current);
    }
    return last[b.size()];
}

} // namespace

std::optional<std::string> nearest(const std::string& typed,
                                   const std::vector<std::string>& names) {
    std::optional<std::string> best;
    std::size_t fewest = typed.size();
    for (const std::string& name : names) {
        const std::size_t slips = slipsBetween(typed, name);
        const std::size_t allowed =
            std::max<std::size_t>(1, std::max(typed.size(), name.size()) / 3);
        if (slips <= allowed && slips < fewest) {
            best = name;
            fewest = slips;
        }
    }
    return best;
}

} // namespace updater
