// certstoreupdate watch: follows the token.
#include "commands.h"

#include "certificatetext.h"
#include "cleaning.h"
#include "csps.h"
#include "text.h"
#include "update.h"
#include "version.h"

#include "certstoreupdatererror.h"

#include <algorithm>
#include <chrono>
#include <optional>

namespace updater {

namespace {

using std::chrono::milliseconds;

/// The growing delay between tries.
class Backoff {
public:
    milliseconds next() {
        const milliseconds delay = next_;
        next_ = std::min(next_ * 2, longest);
        return delay;
    }
    void reset() { next_ = shortest; }

private:
    static constexpr milliseconds shortest{1000};
    static constexpr milliseconds longest{300'000};

    milliseconds next_ = shortest;
};

bool isSame(const WantedMap& a, const WantedMap& b) {
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& other) {
            return one.first == other.first && one.second.hasKey == other.second.hasKey &&
                   one.second.item.label == other.second.item.label &&
                   updater::isSame(one.second.item.certificate, other.second.item.certificate);
        });
}

bool isNoTokenPresent(const Failure& failure) {
    using pkcs11::certstoreupdater::CertStoreUpdaterError_TokenNotPresent;
    return dynamic_cast<const CertStoreUpdaterError_TokenNotPresent*>(failure.event()) != nullptr;
}

class Watch {
public:
    Watch(const Options& options, Output& output)
        : options_(options), output_(output), pin_(readPin(options.pin)) {}

    void run() {
        output_.event({{"event", "watching"},
                       {"schema", 1},
                       {"program", "certstoreupdate"},
                       {"version", version},
                       {"csp", toUtf8(options_.csp)},
                       {"store", toUtf8(options_.store)}});
        while (!interruption_.isRequested()) {
            try {
                if (!follow())
                    waitForToken();
            } catch (const Failure& failure) {
                recover(failure);
            }
        }
        tell("stopped", L"stopped");
    }

private:
    /// Follows the token until it cannot be read any more or this is to end.
    /// \returns false if there is no token
    bool follow() {
        hasRead_ = false;
        try {
            const ModuleFile module(options_.module, options_.signing);
            const auto unloadFailure =
                withToken(module, [&](Token& token) { followPresent(token); });
            if (unloadFailure)
                output_.fail(*unloadFailure);
        } catch (const Failure& failure) {
            if (!isNoTokenPresent(failure))
                throw;
            wasLoaded_ = true;
            return false;
        }
        return true;
    }

    void followPresent(Token& token) {
        wasLoaded_ = true;
        logIn(token);
        do {
            look(token);
            backoff_.reset();
        } while (!interruption_.waitFor(options_.interval));
    }

    /// Modules answer a wrong PIN with codes of their own, too, and a token locks after a few: so
    /// whatever a login fails with is final, unless the token was gone.
    void logIn(Token& token) {
        try {
            token.logIn(pin_);
        } catch (const Failure& failure) {
            loginFailed_ = failure.code() != ExitCode::tokenAbsent;
            throw;
        }
    }

    void look(const Token& token) {
        const TokenContents contents = token.read(options_.selection.reading());
        hasRead_ = true;
        mustClean_ = false;
        if (presence_ != Presence::present)
            tell("token-present", L"the token is present");
        presence_ = Presence::present;
        WantedMap wanted = wantedOf(contents, options_.selection);
        if (!inStep_ || !isSame(*inStep_, wanted))
            synchronise(std::move(wanted));
    }

    void synchronise(WantedMap wanted) {
        inStep_.reset();
        Json event{{"event", "synchronised"}};
        update(options_, wanted, interruption_, output_, event["sync"]);
        output_.event(event);
        inStep_ = std::move(wanted);
    }

    void waitForToken() {
        if (presence_ == Presence::unknown)
            tell("token-absent", L"there is no token; waiting for one");
        if (presence_ == Presence::present) {
            tell("token-gone", L"the token is gone");
            inStep_.reset();
            mustClean_ = options_.cleanWhenGone;
        }
        presence_ = Presence::absent;
        if (mustClean_) {
            const Json result = clean(options_, interruption_, output_);
            output_.event({{"event", "cleaned"}, {"clean", result}});
            mustClean_ = false;
        }
        interruption_.waitFor(options_.interval);
    }

    /// Waits until it is worth trying again, or gives up.
    void recover(const Failure& failure) {
        if (isFinal(failure)) {
            pin_.wipe();
            throw failure;
        }
        // A token that was pulled while it was followed is no fault: the next look tells.
        if (failure.code() == ExitCode::tokenAbsent && hasRead_) {
            interruption_.waitFor(options_.interval);
            return;
        }
        const milliseconds delay = backoff_.next();
        const std::wstring sentence = failure.sentence() + L"; the next try is in " +
                                      std::to_wstring(delay.count() / 1000) + L" s";
        output_.fail(failure.event() ? Failure(failure.code(), sentence, *failure.event())
                                     : Failure(failure.code(), sentence));
        interruption_.waitFor(delay);
    }

    /// Whether trying again would lock the token or load what must not be loaded, or the command
    /// line names no module at all, or nobody could hear of it.
    bool isFinal(const Failure& failure) const {
        return loginFailed_ || failure.code() == ExitCode::signature ||
               failure.code() == ExitCode::unexpected ||
               (failure.code() == ExitCode::module && !wasLoaded_);
    }

    void tell(const char* event, std::wstring_view text) const {
        output_.report(text);
        output_.event({{"event", event}});
    }

    enum class Presence { unknown, absent, present };

    const Options& options_;
    Output& output_;
    Pin pin_;
    const Interruption interruption_; ///< made after the PIN was asked for: that can be broken off
    Backoff backoff_;
    bool loginFailed_ = false;
    bool wasLoaded_ = false; ///< the module, once at least
    bool hasRead_ = false;   ///< the token, since the module was loaded
    Presence presence_ = Presence::unknown;
    bool mustClean_ = false;          ///< the token is gone, and its entries are not yet
    std::optional<WantedMap> inStep_; ///< what the store was brought into step with
};

} // namespace

void watchToken(const Options& options, Output& output) {
    warnUnlessInstalled(options.csp, output);
    Watch(options, output).run();
}

} // namespace updater
