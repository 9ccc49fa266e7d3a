// Bringing a store into step with a token.
#include "synchronise.h"

#include "plan.h"

#include <exception>
#include <map>
#include <optional>
#include <set>

namespace updater {

namespace {

using Kind = SyncEvent::Kind;

// Each pass over the listing removes an entry at least, so only somebody who adds entries all
// the time can keep it going.
constexpr int maxPasses = 1000;

class Synchronisation {
public:
    Synchronisation(const WantedMap& certificates, CspRegistry& registry,
                    const SyncObserver& observer)
        : certificates_(certificates), registry_(registry), observer_(observer),
          wanted_(certificates, registry), before_(registry.list()) {}

    /// Whether it went to its end.
    bool run() { return settleAll() && removeStale() && lookBehindSuccessors(); }

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
            return bindAnew(container, wanted);
        default:
            return tell(Kind::notOurs, container, wanted.item.certificate);
        }
    }

    bool bindAnew(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        // What could not be added again must not be removed.
        if (!isUsable(container, wanted))
            return false;
        registry_.remove(wanted.item.certificate);
        if (registry_.isPresent(wanted.item.certificate))
            return tell(Kind::removalRefused, container, wanted.item.certificate);
        return putBack(container, wanted) &&
               tell(Kind::boundAnew, container, wanted.item.certificate);
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
        if (registry_.isInStep(container, wanted)) {
            if (hasPredecessor(container))
                successors_.emplace(container, &wanted);
            return tell(Kind::added, container, wanted.item.certificate);
        }
        const bool somebodyWasFaster = registry_.isPresent(wanted.item.certificate);
        return tell(somebodyWasFaster ? Kind::notOurs : Kind::addRefused, container,
                    wanted.item.certificate);
    }

    bool hasPredecessor(const Buffer<wchar_t>& container) {
        const auto listed = before_.find(container);
        return listed != before_.end() &&
               isStale(container, listed->second.certificate, wanted_, registry_);
    }

    bool removeStale() {
        // What was listed before may be hidden now by what was added to the same container.
        bool progress = false;
        if (!removeOf(before_, progress))
            return false;
        for (int pass = 0; pass != maxPasses; ++pass) {
            progress = false;
            if (!removeOf(registry_.list(), progress))
                return false;
            if (!progress)
                return true;
        }
        giveUp();
    }

    bool lookBehindSuccessors() {
        for (const auto& [container, wanted] : successors_) {
            lookBehind(container, *wanted);
            if (!observer_.onProgress())
                return false;
        }
        return true;
    }

    [[noreturn]] static void giveUp() {
        throw Failure(ExitCode::incomplete,
                      L"new entries keep appearing for the CSP; see that nothing else changes the "
                      L"store, then try again");
    }

    /// The listing shows one entry of a container, and which one is up to the store. So what an
    /// interrupted run left behind may be hidden by the successor, and is seen only while that is
    /// taken out for a moment.
    void lookBehind(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        for (int pass = 0; pass != maxPasses; ++pass) {
            const std::optional<CertMap> behind = listWithout(container, wanted);
            if (!behind)
                return;
            const auto hidden = behind->find(container);
            if (hidden == behind->end() || !mayRemove(container, hidden->second.certificate) ||
                !remove(container, hidden->second.certificate))
                return;
        }
        giveUp();
    }

    /// What is listed while a certificate is taken out; nothing if the store keeps it, or does
    /// not take it back. Whatever fails in between, the certificate is put back.
    std::optional<CertMap> listWithout(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        registry_.remove(wanted.item.certificate);
        std::optional<CertMap> listed;
        try {
            if (registry_.isPresent(wanted.item.certificate))
                return std::nullopt;
            listed = registry_.list();
        } catch (...) {
            putBack(container, wanted);
            throw;
        }
        if (!putBack(container, wanted))
            return std::nullopt;
        return listed;
    }

    /// A fault that passes must not cost a registration that was there a moment ago.
    bool putBack(const Buffer<wchar_t>& container, const WantedItem& wanted) {
        std::exception_ptr fault;
        try {
            registry_.add(container, wanted);
        } catch (...) {
            fault = std::current_exception();
            registry_.add(container, wanted);
        }
        if (registry_.isInStep(container, wanted))
            return true;
        if (fault)
            std::rethrow_exception(fault);
        return tell(Kind::addRefused, container, wanted.item.certificate);
    }

    /// \param progress set if something was removed, so that what it hid may be listed now
    /// \returns whether to go on
    bool removeOf(const CertMap& listed, bool& progress) {
        for (const auto& [container, item] : listed) {
            if (!mayRemove(container, item.certificate))
                continue;
            if (remove(container, item.certificate))
                progress = true;
            if (!observer_.onProgress())
                return false;
        }
        return true;
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
        observer_.onEvent(event);
        return event.isChange();
    }

    const WantedMap& certificates_;
    CspRegistry& registry_;
    const SyncObserver& observer_;
    Wanted wanted_;
    CertMap before_;
    /// What was added to containers for which there was something registered before.
    std::map<Buffer<wchar_t>, const WantedItem*> successors_;
    /// Containers whose entries stay: without a successor in step, or kept by the store.
    std::set<Buffer<wchar_t>> unsettled_;
};

} // namespace

bool SyncEvent::isChange() const noexcept {
    return kind == Kind::added || kind == Kind::boundAnew || kind == Kind::removed;
}

bool synchronise(const WantedMap& wanted, CspRegistry& registry, const SyncObserver& observer) {
    return Synchronisation(wanted, registry, observer).run();
}

} // namespace updater
