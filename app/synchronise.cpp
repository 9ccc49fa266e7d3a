// Bringing a store into step with a token.
#include "synchronise.h"

#include "plan.h"

#include <set>

namespace updater {

namespace {

using Kind = SyncEvent::Kind;

class Synchronisation {
public:
    Synchronisation(const WantedMap& certificates, CspRegistry& registry,
                    const SyncObserver& observer)
        : certificates_(certificates), registry_(registry), observer_(observer),
          wanted_(certificates, registry) {}

    /// Whether it went to its end.
    bool run() { return settleAll() && removeStale(); }

private:
    bool settleAll() {
        for (const auto& [container, wanted] : certificates_) {
            if (!settle(container, wanted))
                unsettled_.insert(container);
            if (!observer_.onProgress())
                return false;
        }
        return true;
    }

    /// Whether the container is in step in the end, or has nothing to be registered for it.
    bool settle(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        switch (stateOf(container, wanted, wanted_, registry_)) {
        case State::inStep:
        case State::duplicate:
            return true;
        case State::unusable:
            return tell(Kind::unusable, container, wanted.item.certificate);
        case State::missing:
            return add(container, wanted);
        case State::boundOtherwise:
            return rebind(container, wanted);
        default:
            return tell(Kind::notOurs, container, wanted.item.certificate);
        }
    }

    bool rebind(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        // What cannot be bound as it should be stays bound as it is.
        if (!isUsable(container, wanted))
            return false;
        registry_.rebind(container, wanted);
        const bool isRebound = registry_.isInStep(container, wanted);
        return tell(isRebound ? Kind::rebound : Kind::addRefused, container,
                    wanted.item.certificate);
    }

    bool isUsable(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        return succeeds(container, wanted, [&] { registry_.requireUsable(container, wanted); });
    }

    /// Whether a step works; a malformed certificate is told to the observer.
    template <class Step>
    bool succeeds(const Buffer<wchar_t>& container, const WantedItem& wanted, Step step) {
        try {
            step();
            return true;
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::certificate)
                throw;
            observer_.onEvent({Kind::unusable, container, wanted.item.certificate, failure});
            return false;
        }
    }

    bool add(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        if (!succeeds(container, wanted, [&] { registry_.add(container, wanted); }))
            return false;
        if (registry_.isInStep(container, wanted))
            return tell(Kind::added, container, wanted.item.certificate);
        const bool somebodyWasFaster = registry_.isPresent(wanted.item.certificate);
        return tell(somebodyWasFaster ? Kind::notOurs : Kind::addRefused, container,
                    wanted.item.certificate);
    }

    /// \returns whether to go on
    bool removeStale() {
        for (const auto& [container, certificate] : registry_.registered()) {
            if (!mayRemove(container, certificate))
                continue;
            remove(container, certificate);
            if (!observer_.onProgress())
                return false;
        }
        return true;
    }

    bool mayRemove(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        return unsettled_.count(container) == 0 && isStale(container, cert, wanted_, registry_);
    }

    void remove(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        registry_.remove(cert);
        tell(registry_.isPresent(cert) ? Kind::removalRefused : Kind::removed, container, cert);
    }

    /// \returns whether it is good news
    bool tell(Kind kind, const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
        const SyncEvent event{kind, container, cert};
        observer_.onEvent(event);
        return event.isChange();
    }

    const WantedMap& certificates_;
    CspRegistry& registry_;
    const SyncObserver& observer_;
    Wanted wanted_;
    /// Containers whose entries stay, as there is no successor in step.
    std::set<Buffer<wchar_t>> unsettled_;
};

} // namespace

bool SyncEvent::isChange() const noexcept {
    return kind == Kind::added || kind == Kind::rebound || kind == Kind::removed;
}

bool synchronise(const WantedMap& wanted, CspRegistry& registry, const SyncObserver& observer) {
    return Synchronisation(wanted, registry, observer).run();
}

} // namespace updater
