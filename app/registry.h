// The certificates that a store holds for one CSP, as comparing and synchronising see them.
#pragma once

#include "certitem.h"

#include <map>
#include <vector>

namespace updater {

using buffer::Buffer;
using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;

/// A certificate of the token that belongs into the store.
struct WantedItem {
    CertItem item;
    /// Whether its private key is on the token: only then is it bound to a key.
    bool hasKey = true;
};

/// What belongs into the store, by container.
using WantedMap = std::map<Buffer<wchar_t>, WantedItem>;

/// An entry that is ours.
struct Registered {
    Buffer<wchar_t> container; ///< that the record of its registration names
    asn1::Certificate certificate;
};

/// One CSP's part of a store. An entry is ours if it carries the record of container and CSP
/// that a registration leaves; nothing else is ever removed. Every function throws Failure.
class CspRegistry {
public:
    virtual ~CspRegistry() = default;

    /// Whether the store can hold a certificate at all. Windows refuses some that are well-formed;
    /// no other function may be asked about those.
    virtual bool canHold(const asn1::Certificate& cert) = 0;

    /// What is bound to the CSP, ours or not. Of several entries with one container only one is
    /// listed; another one appears when that one is gone.
    virtual CertMap list() = 0;
    /// All entries that are ours, by container, several of one container too. A certificate that
    /// cannot be read is left out: it is nobody's to remove.
    virtual std::vector<Registered> registered() = 0;
    /// Whether a certificate is ours for this container, and its key binding is as it should be:
    /// to this container if its private key is on the token, otherwise to none.
    virtual bool isInStep(const Buffer<wchar_t>& container, const WantedItem& wanted) = 0;
    /// Whether a certificate is ours, for this container.
    virtual bool isOurs(const Buffer<wchar_t>& container, const asn1::Certificate& cert) = 0;
    /// Whether a certificate is ours, for whatever container.
    virtual bool isOurs(const asn1::Certificate& cert) = 0;
    /// Whether a certificate is in the store, ours or not.
    virtual bool isPresent(const asn1::Certificate& cert) = 0;

    /// Throws what `add` throws for a certificate that cannot be registered because it is
    /// malformed; changes nothing.
    virtual void requireUsable(const Buffer<wchar_t>& container, const WantedItem& wanted) = 0;
    /// Registers a certificate, all or nothing. The store may refuse silently, because the user
    /// declines or because the certificate is there already.
    virtual void add(const Buffer<wchar_t>& container, const WantedItem& wanted) = 0;
    /// Gives a certificate that is in the store the record and the key binding that `add` gives,
    /// without removing it. If it throws, the certificate has some of them, and the next call
    /// does the rest.
    virtual void rebind(const Buffer<wchar_t>& container, const WantedItem& wanted) = 0;
    /// Removes a certificate. The store may refuse silently.
    virtual void remove(const asn1::Certificate& cert) = 0;

protected:
    CspRegistry() = default;
    CspRegistry(const CspRegistry&) = default;
    CspRegistry& operator=(const CspRegistry&) = default;
};

} // namespace updater
