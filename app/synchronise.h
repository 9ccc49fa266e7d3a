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
        boundAnew, ///< removed, and added with the binding that it should have
        removed,
        notOurs,        ///< in the store, but not registered by us: left alone
        addRefused,     ///< the store took it silently not
        removalRefused, ///< the store kept it silently
        unusable,       ///< the certificate is malformed; `failure` says more
    };
    Kind kind;
    Buffer<wchar_t> container;
    asn1::Certificate certificate;
    std::optional<Failure> failure = std::nullopt;

    bool isChange() const noexcept;
};

using SyncObserver = std::function<void(const SyncEvent&)>;

/// Makes the store hold exactly the wanted certificates for the CSP. What is missing is added
/// before anything is removed, and a container keeps what is registered for it until its
/// successor is in step. Nothing is written if nothing differs. Each change is looked up again,
/// since the store may refuse silently.
///
/// Where a certificate is replaced, its predecessors go even if the listing hides them: the
/// successor is then taken out of the store for a moment. A predecessor that an interrupted run
/// left behind an entry in step stays hidden until that entry is replaced or the store cleaned.
///
/// A malformed certificate is told to the observer and left out. Any other failure ends it; what
/// was done until then stays done.
/// \param observe told of every change and every problem at once
/// \throws Failure
void synchronise(const CertMap& wanted, CspRegistry& registry, const SyncObserver& observe);

} // namespace updater
