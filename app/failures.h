// How the program fails: exit codes, and one clear line about what failed.
#pragma once

#include "genericevent.h"

#include <exception>
#include <memory>
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
    different = 12,
};

/// The table of exit codes as --help shows it; the last one is that of Windows for Ctrl-C.
std::string exitCodeHelp();

/// The name of a family of failures for programs: "pin-refused".
const char* familyOf(ExitCode code);

/// A failure in words for the person at the keyboard: what failed, on what, and what to do; and
/// the event that it is about, if there was one.
class Failure : public std::exception {
public:
    Failure(ExitCode code, std::wstring sentence);
    Failure(ExitCode code, std::wstring sentence, const korv::GenericEvent& event);

    ExitCode code() const noexcept { return code_; }
    /// One sentence, without a full stop.
    const std::wstring& sentence() const noexcept { return sentence_; }
    /// The event with all that led to it, or null.
    const korv::GenericEvent* event() const noexcept { return event_.get(); }
    /// The sentence and, in parentheses, the event.
    std::wstring line() const;
    /// The line in UTF-8.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    ExitCode code_;
    std::wstring sentence_;
    std::shared_ptr<const korv::GenericEvent> event_;
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
        listCsps,     ///< no subject
        verify,       ///< subject: the file
        verifyModule, ///< subject: the module's file
        grant,        ///< subject: the path
    };
    Kind kind;
    std::wstring subject;
};

/// Name and parameters of an event and of those that led to it, on one line:
/// `NAME: KEY=VALUE, KEY=VALUE; because of NAME: ...`.
std::wstring describe(const korv::GenericEvent& event);

/// Whether an event says that the module has lost the session, as some do when the token is pulled.
bool meansLostSession(const korv::GenericEvent& event);

/// The failure that an event means to the person at the keyboard.
Failure explain(const Activity& activity, const korv::GenericEvent& event);

/// The failure that a certificate means which no store can hold.
/// \param certificate its name
Failure refusedByWindows(const std::wstring& certificate);

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
