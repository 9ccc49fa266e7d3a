// Token and store compared, container by container.
#pragma once

#include "registry.h"

#include <optional>
#include <string_view>
#include <vector>

namespace updater {

/// How a container stands.
enum class State {
    inStep,         ///< registered as it is on the token
    missing,        ///< on the token, not in the store
    changed,        ///< the token has another certificate than the one that is registered
    boundOtherwise, ///< ours, but for another container, or its key binding says something else
    notOurs,        ///< in the store, but we did not register it: it is left alone
    duplicate,      ///< the same certificate is registered for another container of the token
    stale,          ///< ours, and no longer on the token
    foreign,        ///< bound to the CSP by somebody else, and not on the token
    unusable,       ///< on the token, but no store can hold it: what is registered stays
    tokenOnly,      ///< on the token, but not for the store: no private key goes with it
};

struct Row {
    Buffer<wchar_t> container;
    State state;
    std::optional<CertItem> onToken;
    std::optional<asn1::Certificate> inStore; ///< if it is another one than on the token
};

/// Which certificates are wanted in the store, and can be there, and which container each is
/// registered for.
class Wanted {
public:
    /// \param certificates those of the token that are to be registered; must outlive this object
    Wanted(const WantedMap& certificates, CspRegistry& registry);

    bool has(const asn1::Certificate& cert) const;
    /// Whether a certificate is registered for this container. A store holds a certificate once;
    /// of several containers that have it the one that is in step, else the first, is chosen.
    bool isChosen(const Buffer<wchar_t>& container, const asn1::Certificate& cert) const;

private:
    static std::string_view keyOf(const asn1::Certificate& cert);

    std::map<std::string_view, const Buffer<wchar_t>*> chosen_;
};

/// Compares what is wanted with what is registered, in the order of the containers. Changes
/// nothing.
std::vector<Row> compare(const WantedMap& wanted, CspRegistry& registry);

/// How a certificate of the token stands, without a look at what else is in its container.
State stateOf(const Buffer<wchar_t>& container, const WantedItem& item, const Wanted& wanted,
              CspRegistry& registry);

/// Whether a listed certificate is ours to remove.
bool isStale(const Buffer<wchar_t>& container, const asn1::Certificate& cert, const Wanted& wanted,
             CspRegistry& registry);

} // namespace updater
