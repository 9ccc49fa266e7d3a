// What a synchronisation would do.
#pragma once

#include "registry.h"

#include <map>
#include <set>
#include <string>

namespace updater {

/// A registry whose changes are remembered and not made. Reading sees them as if they were made.
class Rehearsal final : public CspRegistry {
public:
    /// \param real must outlive this object; is only read
    explicit Rehearsal(CspRegistry& real) : real_(real) {}

    bool canHold(const asn1::Certificate& cert) override;
    CertMap list() override;
    std::vector<Registered> registered() override;
    bool isInStep(const Buffer<wchar_t>& container, const WantedItem& wanted) override;
    bool isOurs(const Buffer<wchar_t>& container, const asn1::Certificate& cert) override;
    bool isOurs(const asn1::Certificate& cert) override;
    bool isPresent(const asn1::Certificate& cert) override;
    void requireUsable(const Buffer<wchar_t>& container, const WantedItem& wanted) override;
    void add(const Buffer<wchar_t>& container, const WantedItem& wanted) override;
    void rebind(const Buffer<wchar_t>& container, const WantedItem& wanted) override;
    void remove(const asn1::Certificate& cert) override;

private:
    struct Added {
        Buffer<wchar_t> container;
        CertItem item;
    };
    /// By the octets of the certificate.
    using Key = std::string;

    static Key keyOf(const asn1::Certificate& cert);
    const Added* addedAs(const asn1::Certificate& cert) const;
    bool isRemoved(const asn1::Certificate& cert) const;

    CspRegistry& real_;
    std::map<Key, Added> added_;
    std::set<Key> removed_; ///< from the real one
};

} // namespace updater
