// What comes out of a run of the library.
#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace torture {

using Params = std::vector<std::pair<std::wstring, std::wstring>>;

/// An exception as its catcher sees it, or none.
struct Outcome {
    std::string exception; ///< the class, without its namespace; empty: none
    Params params;         ///< of an event, in order; of a file system error its code as "error"
    Params causeParams;    ///< of the event's parent

    bool isSuccess() const { return exception.empty(); }
    friend bool operator==(const Outcome&, const Outcome&) = default;
};
void PrintTo(const Outcome& outcome, std::ostream* out);

inline const Outcome success;
inline const Outcome outOfMemory{"bad_alloc", {}, {}};

/// The outcome of a caught exception; to be called while it is handled. An event must be of the
/// class whose name it has, else the test fails.
Outcome caughtException();

template <class Action>
Outcome outcomeOf(Action action) {
    try {
        action();
    } catch (...) {
        return caughtException();
    }
    return success;
}

} // namespace torture
