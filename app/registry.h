// The certificates that a store holds for one CSP, as comparing and synchronising see them.
#pragma once

#include "certitem.h"

namespace updater {

using buffer::Buffer;
using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;

/// One CSP's part of a store. An entry is ours if it carries the record of container and CSP
/// that a registration leaves; nothing else is ever removed. Every function throws Failure.
class CspRegistry {
public:
    virtual ~CspRegistry() = default;

    /// What is bound to the CSP, ours or not. Of several entries with one container only one is
    /// listed; another one appears when that one is gone.
    virtual CertMap list() = 0;
    /// Whether a certificate is ours and its key binding says the same as its record.
    virtual bool isInStep(const Buffer<wchar_t>& container, const asn1::Certificate& cert) = 0;
    /// Whether a certificate is ours, for this container.
    virtual bool isOurs(const Buffer<wchar_t>& container, const asn1::Certificate& cert) = 0;
    /// Whether a certificate is ours, for whatever container.
    virtual bool isOurs(const asn1::Certificate& cert) = 0;
    /// Whether a certificate is in the store, ours or not.
    virtual bool isPresent(const asn1::Certificate& cert) = 0;

    /// Throws what `add` throws for a certificate that cannot be registered because it is
    /// malformed; changes nothing.
    virtual void requireUsable(const Buffer<wchar_t>& container, const CertItem& item) = 0;
    /// Registers a certificate, all or nothing. The store may refuse silently, because the user
    /// declines or because the certificate is there already.
    virtual void add(const Buffer<wchar_t>& container, const CertItem& item) = 0;
    /// Removes a certificate. The store may refuse silently.
    virtual void remove(const asn1::Certificate& cert) = 0;

protected:
    CspRegistry() = default;
    CspRegistry(const CspRegistry&) = default;
    CspRegistry& operator=(const CspRegistry&) = default;
};

} // namespace updater
