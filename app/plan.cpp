// Token and store compared, container by container.
#include "plan.h"

#include "certificatetext.h"

#include <algorithm>

namespace updater {

namespace {

class Comparison {
public:
    Comparison(const WantedMap& certificates, CspRegistry& registry)
        : certificates_(certificates), registry_(registry), wanted_(certificates, registry),
          listed_(registry.list()) {}

    std::vector<Row> rows() {
        for (const auto& [container, wanted] : certificates_)
            addWanted(container, wanted);
        for (const auto& [container, item] : listed_)
            addListed(container, item.certificate);
        std::stable_sort(rows_.begin(), rows_.end(),
                         [](const Row& a, const Row& b) { return a.container < b.container; });
        return std::move(rows_);
    }

private:
    void addWanted(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        Row row{container, stateOf(container, wanted, wanted_, registry_), wanted.item,
                std::nullopt};
        const auto listed = listed_.find(container);
        if ((row.state == State::missing || row.state == State::unusable) &&
            listed != listed_.end() &&
            isStale(container, listed->second.certificate, wanted_, registry_)) {
            if (row.state == State::missing)
                row.state = State::changed;
            row.inStore = listed->second.certificate;
        }
        rows_.push_back(std::move(row));
    }

    void addListed(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        if (wanted_.has(cert) || isPredecessor(container))
            return;
        const bool stale = isStale(container, cert, wanted_, registry_);
        rows_.push_back({container, stale ? State::stale : State::foreign, std::nullopt, cert});
    }

    bool isPredecessor(const Buffer<wchar_t>& container) const {
        return std::any_of(rows_.begin(), rows_.end(), [&](const Row& row) {
            return row.onToken && row.inStore && row.container == container;
        });
    }

    const WantedMap& certificates_;
    CspRegistry& registry_;
    Wanted wanted_;
    CertMap listed_;
    std::vector<Row> rows_;
};

} // namespace

Wanted::Wanted(const WantedMap& certificates, CspRegistry& registry) {
    for (const auto& [container, wanted] : certificates) {
        if (!registry.canHold(wanted.item.certificate))
            continue;
        const auto [entry, isFirst] =
            chosen_.try_emplace(keyOf(wanted.item.certificate), &container);
        if (!isFirst && registry.isInStep(container, wanted))
            entry->second = &container;
    }
}

std::string_view Wanted::keyOf(const asn1::Certificate& cert) {
    const auto encoding = cert.encoding();
    return {reinterpret_cast<const char*>(encoding.data()), encoding.size()};
}

bool Wanted::has(const asn1::Certificate& cert) const {
    return chosen_.count(keyOf(cert)) != 0;
}

bool Wanted::isChosen(const Buffer<wchar_t>& container, const asn1::Certificate& cert) const {
    const auto entry = chosen_.find(keyOf(cert));
    return entry != chosen_.end() && *entry->second == container;
}

State stateOf(const Buffer<wchar_t>& container, const WantedItem& item, const Wanted& wanted,
              CspRegistry& registry) {
    const asn1::Certificate& cert = item.item.certificate;
    if (!wanted.has(cert))
        return State::unusable;
    if (!wanted.isChosen(container, cert))
        return State::duplicate;
    if (registry.isInStep(container, item))
        return State::inStep;
    if (!registry.isPresent(cert))
        return State::missing;
    return registry.isOurs(cert) ? State::boundOtherwise : State::notOurs;
}

bool isStale(const Buffer<wchar_t>& container, const asn1::Certificate& cert, const Wanted& wanted,
             CspRegistry& registry) {
    return !wanted.has(cert) && registry.isOurs(container, cert);
}

std::vector<Row> compare(const WantedMap& wanted, CspRegistry& registry) {
    return Comparison(wanted, registry).rows();
}

} // namespace updater
