// Bringing a store into step with a token.
#include "synchronise.h"

#include "plan.h"

#include <set>

namespace updater {

namespace {

using Kind = SyncEvent::Kind;

// Each pass over the listing removes an entry at least, so only somebody who adds entries all
// the time can keep it going.
constexpr int maxPasses = 1000;

class Synchronisation {
public:
    Synchronisation(const CertMap& certificates, CspRegistry& registry, const SyncObserver& observe)
        : certificates_(certificates), registry_(registry), observe_(observe),
          wanted_(certificates, registry), before_(registry.list()) {}

    void run() {
        for (const auto& [container, item] : certificates_)
            if (wanted_.isChosen(container, item.certificate) && !settle(container, item))
                unsettled_.insert(container);
        removeStale();
    }

private:
    /// Whether the container is in step in the end.
    bool settle(const Buffer<wchar_t>& container, const CertItem& item) {
        switch (stateOf(container, item.certificate, registry_)) {
        case State::inStep:
            return true;
        case State::missing:
            return add(container, item, Kind::added);
        case State::boundOtherwise:
            return bindAnew(container, item);
        default:
            return tell(Kind::notOurs, container, item.certificate);
        }
    }

    bool bindAnew(const Buffer<wchar_t>& container, const CertItem& item) {
        registry_.remove(item.certificate);
        if (registry_.isPresent(item.certificate))
            return tell(Kind::removalRefused, container, item.certificate);
        return add(container, item, Kind::boundAnew);
    }

    bool add(const Buffer<wchar_t>& container, const CertItem& item, Kind done) {
        try {
            registry_.add(container, item);
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::certificate)
                throw;
            observe_({Kind::unusable, container, item.certificate, failure});
            return false;
        }
        if (registry_.isInStep(container, item.certificate))
            return tell(done, container, item.certificate);
        const bool somebodyWasFaster = registry_.isPresent(item.certificate);
        return tell(somebodyWasFaster ? Kind::notOurs : Kind::addRefused, container,
                    item.certificate);
    }

    void removeStale() {
        // What was listed before may be hidden now by what was added to the same container.
        removeOf(before_);
        for (int pass = 0; pass != maxPasses; ++pass)
            if (!removeOf(registry_.list()))
                return;
        throw Failure(ExitCode::incomplete,
                      L"new entries keep appearing for the CSP; see that nothing else changes the "
                      L"store, then try again");
    }

    /// Whether something was removed, so that what it hid may be listed now.
    bool removeOf(const CertMap& listed) {
        bool progress = false;
        for (const auto& [container, item] : listed)
            if (mayRemove(container, item.certificate) && remove(container, item.certificate))
                progress = true;
        return progress;
    }

    bool mayRemove(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        return unsettled_.count(container) == 0 && isStale(container, cert, wanted_, registry_);
    }

    bool remove(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        registry_.remove(cert);
        if (!registry_.isPresent(cert))
            return tell(Kind::removed, container, cert);
        unsettled_.insert(container);
        return tell(Kind::removalRefused, container, cert);
    }

    /// \returns whether it is good news
    bool tell(Kind kind, const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        const SyncEvent event{kind, container, cert};
        observe_(event);
        return event.isChange();
    }

    const CertMap& certificates_;
    CspRegistry& registry_;
    const SyncObserver& observe_;
    Wanted wanted_;
    CertMap before_;
    /// Containers whose entries stay: without a successor in step, or kept by the store.
    std::set<Buffer<wchar_t>> unsettled_;
};

} // namespace

bool SyncEvent::isChange() const noexcept {
    return kind == Kind::added || kind == Kind::boundAnew || kind == Kind::removed;
}

void synchronise(const CertMap& wanted, CspRegistry& registry, const SyncObserver& observe) {
    Synchronisation(wanted, registry, observe).run();
}

} // namespace updater
