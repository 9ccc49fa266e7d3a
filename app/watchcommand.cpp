// certstoreupdate watch: follows the token.
#include "commands.h"

#include "certificatetext.h"
#include "cleaning.h"
#include "namechecks.h"
#include "text.h"
#include "update.h"
#include "version.h"

#include "certstoreupdatererror.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace updater {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

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

/// Whether the module's file is at fault, and not what the module answered.
bool cannotBeLoaded(const Failure& failure) {
    return failure.event() && failure.event()->parent();
}

bool isNoTokenPresent(const Failure& failure) {
    using pkcs11::certstoreupdater::CertStoreUpdaterError_TokenNotPresent;
    return dynamic_cast<const CertStoreUpdaterError_TokenNotPresent*>(failure.event()) != nullptr;
}

class Watch {
public:
    Watch(const Options& options, Output& output)
        : options_(options), output_(output), module_(options.module, options.signing),
          pin_(readPin(options.pin)) {}

    void run() {
        while (!interruption_.isRequested()) {
            try {
                if (!follow())
                    waitForToken();
            } catch (const Failure& failure) {
                recover(failure);
            }
        }
        warnOfWhatWasNotCleaned();
        tell("stopped", L"stopped");
    }

private:
    enum class Presence { unknown, absent, present };

    /// Follows the token until it cannot be read any more or this is to end.
    /// \returns false if there is no token
    bool follow() {
        const bool wasAbsent = std::exchange(lastSeen_, Presence::unknown) == Presence::absent;
        hasRead_ = false;
        try {
            const auto unloadFailure = withToken(module_, [&](Token& token) {
                // What failed without the token is not the fault of the one that has returned.
                if (wasAbsent)
                    backoff_.reset();
                followPresent(token);
            });
            if (unloadFailure)
                output_.fail(*unloadFailure);
        } catch (const Failure& failure) {
            if (!isNoTokenPresent(failure))
                throw;
            wasLoaded_ = true;
            lastSeen_ = Presence::absent;
            if (!mustClean_)
                backoff_.reset();
            return false;
        }
        return true;
    }

    void followPresent(Token& token) {
        wasLoaded_ = true;
        lastSeen_ = Presence::present;
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
        if (told_ != Presence::present)
            tell("token-present", L"the token is present");
        told_ = Presence::present;
        WantedMap wanted = wantedOf(contents, options_.selection);
        if (!inStep_ || !isSame(*inStep_, wanted))
            synchronise(std::move(wanted));
    }

    void synchronise(WantedMap wanted) {
        inStep_.reset();
        Json result;
        try {
            const bool complete = update(options_, wanted, interruption_, output_, result);
            tellSynchronised(result);
            if (complete)
                inStep_ = std::move(wanted);
        } catch (const Failure&) {
            const bool hasBegun =
                !result.is_null() && !(result["changes"].empty() && result["problems"].empty());
            if (hasBegun)
                tellSynchronised(result);
            throw;
        }
    }

    void tellSynchronised(const Json& result) const {
        output_.event({{"event", "synchronised"}, {"sync", result}});
    }

    void waitForToken() {
        if (told_ == Presence::unknown)
            tell("token-absent", L"there is no token; waiting for one");
        if (told_ == Presence::present) {
            tell("token-gone", L"the token is gone");
            inStep_.reset();
            mustClean_ = options_.cleanWhenGone;
        }
        told_ = Presence::absent;
        if (mustClean_) {
            const Json result = clean(options_, interruption_, output_);
            output_.event({{"event", "cleaned"}, {"clean", result}});
            mustClean_ = false;
        }
        interruption_.waitFor(options_.interval);
    }

    /// Waits until it is worth trying again, or gives up.
    void recover(const Failure& failure) {
        // Ctrl-C is how this ends, also while another run has the store.
        if (failure.code() == ExitCode::incomplete && interruption_.isRequested())
            return;
        if (isFinal(failure)) {
            pin_.wipe();
            warnOfWhatWasNotCleaned();
            throw failure;
        }
        if (mayBePulledToken(failure)) {
            interruption_.waitFor(options_.interval);
            return;
        }
        const milliseconds delay = backoff_.next();
        const std::wstring sentence = failure.sentence() + L"; the next try is in " +
                                      std::to_wstring(delay.count() / 1000) + L" s";
        output_.fail(failure.event() ? Failure(failure.code(), sentence, *failure.event())
                                     : Failure(failure.code(), sentence));
        waitForNextTry(delay);
    }

    /// A token that was pulled while it was followed is no fault: the next look tells, and tells
    /// of the fault if it was one.
    bool mayBePulledToken(const Failure& failure) const {
        return hasRead_ && (failure.code() == ExitCode::tokenAbsent ||
                            (failure.event() && meansLostSession(*failure.event())));
    }

    /// Waits, but not once the token has left, which takes its fault with it, or has returned.
    void waitForNextTry(milliseconds delay) {
        const auto end = Clock::now() + delay;
        const auto nextLook = [&] {
            return std::min(options_.interval, std::chrono::ceil<milliseconds>(end - Clock::now()));
        };
        while (!interruption_.waitFor(nextLook()) && Clock::now() < end) {
            if (hasTokenLeft() || hasTokenReturned()) {
                backoff_.reset();
                return;
            }
        }
    }

    bool hasTokenLeft() const {
        return lastSeen_ == Presence::present && lookForToken() == Presence::absent;
    }
    bool hasTokenReturned() const {
        return lastSeen_ == Presence::absent && lookForToken() == Presence::present;
    }

    /// Loads the module to see whether the token is there; unknown if it does not start.
    Presence lookForToken() const {
        try {
            withToken(module_, [](Token&) {});
            return Presence::present;
        } catch (const Failure& failure) {
            return isNoTokenPresent(failure) ? Presence::absent : Presence::unknown;
        }
    }

    /// Whether another try could lock the token, or is in vain because the file is no module or
    /// the output cannot be written. A module that merely does not start may wait for its device.
    bool isFinal(const Failure& failure) const {
        return loginFailed_ || failure.code() == ExitCode::unexpected ||
               (failure.code() == ExitCode::module && !wasLoaded_ && cannotBeLoaded(failure));
    }

    void warnOfWhatWasNotCleaned() const {
        if (mustClean_)
            output_.warn(L"what is registered for the CSP was not removed; run clean");
    }

    void tell(const char* event, std::wstring_view text) const {
        output_.report(text);
        output_.event({{"event", event}});
    }

    const Options& options_;
    Output& output_;
    const ModuleFile module_; ///< first, so that nobody is asked for a PIN in vain
    Pin pin_;
    const Interruption interruption_; ///< after the PIN prompt, which Ctrl-C ends at once
    Backoff backoff_;
    bool loginFailed_ = false;
    bool wasLoaded_ = false;                ///< the module, at least once
    Presence lastSeen_ = Presence::unknown; ///< the token, when the module was loaded last
    bool hasRead_ = false;                  ///< the token, since the module was loaded
    Presence told_ = Presence::unknown;     ///< what the user was told of the token last
    bool mustClean_ = false;                ///< the token is gone, but its entries are not yet
    std::optional<WantedMap> inStep_;       ///< what the store was brought into step with
};

} // namespace

void watchToken(const Options& options, Output& output) {
    output.event({{"event", "watching"},
                  {"schema", 1},
                  {"program", "certstoreupdate"},
                  {"version", version},
                  {"csp", toUtf8(options.csp)},
                  {"store", toUtf8(options.store)}});
    requireInstalledCsp(options, output);
    Watch(options, output).run();
}

} // namespace updater
