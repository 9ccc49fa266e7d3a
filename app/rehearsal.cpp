// What a synchronisation would do.
#include "rehearsal.h"

#include <utility>

namespace updater {

bool Rehearsal::canHold(const asn1::Certificate& cert) {
    return real_.canHold(cert);
}

CertMap Rehearsal::list() {
    CertMap listed;
    for (auto& [container, item] : real_.list())
        if (!isRemoved(item.certificate))
            listed.emplace(container, item);
    // The store lists what it had before what was added.
    for (const auto& [key, added] : added_)
        listed.emplace(added.container, added.item);
    return listed;
}

std::vector<Registered> Rehearsal::registered() {
    std::vector<Registered> registered;
    for (Registered& entry : real_.registered())
        if (!isRemoved(entry.certificate) && !addedAs(entry.certificate))
            registered.push_back(std::move(entry));
    for (const auto& [key, added] : added_)
        registered.push_back({added.container, added.item.certificate});
    return registered;
}

bool Rehearsal::isInStep(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    if (const Added* const added = addedAs(wanted.item.certificate))
        return added->container == container;
    return !isRemoved(wanted.item.certificate) && real_.isInStep(container, wanted);
}

bool Rehearsal::isOurs(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
    if (const Added* const added = addedAs(cert))
        return added->container == container;
    return !isRemoved(cert) && real_.isOurs(container, cert);
}

bool Rehearsal::isOurs(const asn1::Certificate& cert) {
    return addedAs(cert) || (!isRemoved(cert) && real_.isOurs(cert));
}

bool Rehearsal::isPresent(const asn1::Certificate& cert) {
    return addedAs(cert) || (!isRemoved(cert) && real_.isPresent(cert));
}

void Rehearsal::requireUsable(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    real_.requireUsable(container, wanted);
}

void Rehearsal::add(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    requireUsable(container, wanted);
    // A store leaves an entry as it is that is there already.
    if (!isPresent(wanted.item.certificate))
        added_.emplace(keyOf(wanted.item.certificate), Added{container, wanted.item});
}

void Rehearsal::rebind(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    removed_.insert(keyOf(wanted.item.certificate));
    added_.insert_or_assign(keyOf(wanted.item.certificate), Added{container, wanted.item});
}

void Rehearsal::remove(const asn1::Certificate& cert) {
    if (added_.erase(keyOf(cert)) == 0)
        removed_.insert(keyOf(cert));
}

Rehearsal::Key Rehearsal::keyOf(const asn1::Certificate& cert) {
    const auto encoding = cert.encoding();
    return {encoding.begin(), encoding.end()};
}

const Rehearsal::Added* Rehearsal::addedAs(const asn1::Certificate& cert) const {
    const auto found = added_.find(keyOf(cert));
    return found == added_.end() ? nullptr : &found->second;
}

bool Rehearsal::isRemoved(const asn1::Certificate& cert) const {
    return removed_.count(keyOf(cert)) != 0;
}

} // namespace updater
