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
    Synchronisation(const CertMap& certificates, CspRegistry& registry, const SyncObserver& observe)
        : certificates_(certificates), registry_(registry), observe_(observe),
          wanted_(certificates, registry), before_(registry.list()) {}

    void run() {
        for (const auto& [container, item] : certificates_)
            if (wanted_.isChosen(container, item.certificate) && !settle(container, item))
                unsettled_.insert(container);
        removeStale();
        for (const auto& [container, item] : successors_)
            lookBehind(container, *item);
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
        // What could not be added again must not be removed.
        if (!isUsable(container, item))
            return false;
        registry_.remove(item.certificate);
        if (registry_.isPresent(item.certificate))
            return tell(Kind::removalRefused, container, item.certificate);
        return putBack(container, item) && tell(Kind::boundAnew, container, item.certificate);
    }

    bool isUsable(const Buffer<wchar_t>& container, const CertItem& item) {
        return succeeds(container, item, [&] { registry_.requireUsable(container, item); });
    }

    /// Whether a step works; a malformed certificate is told to the observer.
    template <class Step>
    bool succeeds(const Buffer<wchar_t>& container, const CertItem& item, Step step) {
        try {
            step();
            return true;
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::certificate)
                throw;
            observe_({Kind::unusable, container, item.certificate, failure});
            return false;
        }
    }

    bool add(const Buffer<wchar_t>& container, const CertItem& item, Kind done) {
        if (!succeeds(container, item, [&] { registry_.add(container, item); }))
            return false;
        if (registry_.isInStep(container, item.certificate)) {
            if (hasPredecessor(container))
                successors_.emplace(container, &item);
            return tell(done, container, item.certificate);
        }
        const bool somebodyWasFaster = registry_.isPresent(item.certificate);
        return tell(somebodyWasFaster ? Kind::notOurs : Kind::addRefused, container,
                    item.certificate);
    }

    bool hasPredecessor(const Buffer<wchar_t>& container) {
        const auto listed = before_.find(container);
        return listed != before_.end() &&
               isStale(container, listed->second.certificate, wanted_, registry_);
    }

    void removeStale() {
        // What was listed before may be hidden now by what was added to the same container.
        removeOf(before_);
        for (int pass = 0; pass != maxPasses; ++pass)
            if (!removeOf(registry_.list()))
                return;
        giveUp();
    }

    [[noreturn]] static void giveUp() {
        throw Failure(ExitCode::incomplete,
                      L"new entries keep appearing for the CSP; see that nothing else changes the "
                      L"store, then try again");
    }

    /// The listing shows one entry of a container, and which one is up to the store. So what an
    /// interrupted run left behind may be hidden by the successor, and is seen only while that is
    /// taken out for a moment.
    void lookBehind(const Buffer<wchar_t>& container, const CertItem& item) {
        for (int pass = 0; pass != maxPasses; ++pass) {
            const std::optional<CertMap> behind = listWithout(container, item);
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
    std::optional<CertMap> listWithout(const Buffer<wchar_t>& container, const CertItem& item) {
        registry_.remove(item.certificate);
        std::optional<CertMap> listed;
        try {
            if (registry_.isPresent(item.certificate))
                return std::nullopt;
            listed = registry_.list();
        } catch (...) {
            putBack(container, item);
            throw;
        }
        if (!putBack(container, item))
            return std::nullopt;
        return listed;
    }

    /// A fault that passes must not cost a registration that was there a moment ago.
    bool putBack(const Buffer<wchar_t>& container, const CertItem& item) {
        std::exception_ptr fault;
        try {
            registry_.add(container, item);
        } catch (...) {
            fault = std::current_exception();
            registry_.add(container, item);
        }
        if (registry_.isInStep(container, item.certificate))
            return true;
        if (fault)
            std::rethrow_exception(fault);
        return tell(Kind::addRefused, container, item.certificate);
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
    /// What was added to containers for which there was something registered before.
    std::map<Buffer<wchar_t>, const CertItem*> successors_;
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
