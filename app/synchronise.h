// Bringing a store into step with a token.
#pragma once

#include "failures.h"
#include "registry.h"

#include <functional>
#include <optional>

namespace updater {

/// A change of the store that was made, or one that could not be made.
struct SyncEvent {
    enum class Kind {
        added,
        rebound, ///< was there already, and now has the binding that it should have
        removed,
        notOurs,        ///< in the store, but not registered by us: left alone
        addRefused,     ///< the store silently did not take it
        removalRefused, ///< the store silently kept it
        unusable,       ///< malformed, of which `failure` says more, or no store can hold it
    };
    Kind kind;
    Buffer<wchar_t> container;
    asn1::Certificate certificate;
    std::optional<Failure> failure = std::nullopt;

    bool isChange() const noexcept;
};

struct SyncObserver {
    /// Told of every change and every problem at once.
    std::function<void(const SyncEvent&)> onEvent;
    /// Called after each step, when the store is in order. If it returns false, no step follows.
    std::function<bool()> onProgress = [] { return true; };
};

/// Makes the store hold exactly the wanted certificates for the CSP. What is missing is added
/// before anything is removed, and a container keeps what is registered for it until its
/// successor is in step. Nothing is written if nothing differs. Each change is looked up again,
/// since the store may refuse silently.
///
/// No container is without its registration in between: a certificate that only has to be bound
/// otherwise stays in the store while it is.
///
/// A certificate that is malformed or that no store can hold is told to the observer and left out;
/// its container keeps what is registered for it. Any other failure ends it; what was done until
/// then stays done.
/// \returns whether it went to its end
/// \throws Failure
bool synchronise(const WantedMap& wanted, CspRegistry& registry, const SyncObserver& observer);

} // namespace updater
