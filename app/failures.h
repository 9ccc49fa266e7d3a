// How the program fails: exit codes, and one clear line about what failed.
#pragma once

#include "genericevent.h"

#include <exception>
#include <string>

namespace updater {

/// The program's exit codes; --help lists them.
enum class ExitCode : int {
    done = 0,
    unexpected = 1,
    usage = 2,
    module = 3,
    tokenAbsent = 4,
    pinRefused = 5,
    certificate = 6,
    store = 7,
    signature = 8,
    permissions = 9,
    token = 10,
    incomplete = 11,
};

/// The table of exit codes as --help shows it.
std::string exitCodeHelp();

/// A failure in words for the person at the keyboard: what failed, on what, and what to do. It
/// is one line without a full stop; behind it, in parentheses, stands the event that it is about,
/// if there was one.
class Failure : public std::exception {
public:
    Failure(ExitCode code, std::wstring line);

    ExitCode code() const noexcept { return code_; }
    const std::wstring& line() const noexcept { return line_; }
    /// The line in UTF-8.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    ExitCode code_;
    std::wstring line_;
    std::string what_;
};

/// What the program was doing when an event was thrown.
struct Activity {
    enum class Kind {
        loadModule,   ///< subject: the module's file
        logIn,        ///< subject: the module's file
        readToken,    ///< subject: the module's file
        unloadModule, ///< subject: the module's file
        openStore,    ///< subject: the store
        readStore,    ///< subject: the store
        add,          ///< subject: the certificate's subject and container
        remove,       ///< subject: the certificate's subject and container
        clean,        ///< subject: the CSP
    };
    Kind kind;
    std::wstring subject;
};

/// Name and parameters of an event and of those that led to it, on one line:
/// `NAME: KEY=VALUE, KEY=VALUE; because of NAME: ...`.
std::wstring describe(const korv::GenericEvent& event);

/// The failure that an event means to the person at the keyboard.
Failure explain(const Activity& activity, const korv::GenericEvent& event);

/// Calls `function`; an event that it throws becomes a failure.
template <class Function>
auto during(const Activity& activity, Function function) {
    try {
        return function();
    } catch (const korv::GenericEvent& event) {
        throw explain(activity, event);
    }
}

} // namespace updater
