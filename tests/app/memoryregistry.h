// A store in memory: entries, how they are bound, and how the store behaves.
#pragma once

#include "certificatetext.h"
#include "registry.h"

#include "certbuilder.h"
#include "der.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace updater {

inline asn1::Certificate certificateOf(const testsupport::Bytes& encoded) {
    asn1::Certificate certificate;
    asn1::der::decode({encoded.data(), encoded.size()}, certificate);
    return certificate;
}

/// A certificate that differs from those of other numbers.
inline asn1::Certificate numbered(int number) {
    return certificateOf(testsupport::CertBuilder()
                             .serialNumber(number)
                             .names("Holder " + std::to_string(number), "Issuer")
                             .build());
}

inline CertItem itemOf(const asn1::Certificate& certificate, const wchar_t* label = L"") {
    return {{}, label, certificate};
}

inline WantedItem wantedOf(const asn1::Certificate& certificate, const wchar_t* label = L"",
                           bool hasKey = true) {
    return {itemOf(certificate, label), hasKey};
}

struct MemoryEntry {
    asn1::Certificate certificate;
    /// The container that the record for the CSP names; none if we did not register the entry.
    std::optional<Buffer<wchar_t>> recorded;
    /// The container that the key binding to the CSP names.
    std::optional<Buffer<wchar_t>> bound;
};

class MemoryRegistry final : public CspRegistry {
public:
    /// In the order in which they are enumerated.
    std::vector<MemoryEntry> entries;
    /// Every change that was asked for: "add C", "rebind C" and "remove N", with a container and a
    /// subject.
    std::vector<std::wstring> changes;
    bool refusesAdditions = false;
    bool refusesRemovals = false;
    /// A certificate that Windows refuses. Any other question about it than `canHold` throws
    /// std::logic_error.
    std::optional<asn1::Certificate> refused;
    /// Called when a certificate is checked.
    std::function<void(const WantedItem&)> onCheck;
    /// Called before a certificate is rebound.
    std::function<void()> onRebind;
    /// Called before a certificate is added.
    std::function<void(const WantedItem&)> onAdd;

    void addOurs(const Buffer<wchar_t>& container, const asn1::Certificate& certificate) {
        entries.push_back({certificate, container, container});
    }

    bool canHold(const asn1::Certificate& cert) override {
        return !refused || !isSame(*refused, cert);
    }
    CertMap list() override {
        CertMap listed;
        for (const MemoryEntry& entry : entries)
            if (entry.bound || entry.recorded)
                listed.try_emplace(entry.bound ? *entry.bound : *entry.recorded,
                                   itemOf(entry.certificate));
        return listed;
    }
    std::vector<Registered> registered() override {
        std::vector<Registered> registered;
        for (const MemoryEntry& entry : entries)
            if (entry.recorded)
                registered.push_back({*entry.recorded, entry.certificate});
        std::stable_sort(
            registered.begin(), registered.end(),
            [](const Registered& a, const Registered& b) { return a.container < b.container; });
        return registered;
    }
    bool isInStep(const Buffer<wchar_t>& container, const WantedItem& wanted) override {
        const MemoryEntry* entry = find(wanted.item.certificate);
        return entry && entry->recorded == container &&
               (wanted.hasKey ? entry->bound == container : !entry->bound);
    }
    bool isOurs(const Buffer<wchar_t>& container, const asn1::Certificate& cert) override {
        const MemoryEntry* entry = find(cert);
        return entry && entry->recorded == container;
    }
    bool isOurs(const asn1::Certificate& cert) override {
        const MemoryEntry* entry = find(cert);
        return entry && entry->recorded;
    }
    bool isPresent(const asn1::Certificate& cert) override { return find(cert) != nullptr; }

    void requireUsable(const Buffer<wchar_t>&, const WantedItem& wanted) override {
        requireHoldable(wanted.item.certificate);
        if (onCheck)
            onCheck(wanted);
    }
    void add(const Buffer<wchar_t>& container, const WantedItem& wanted) override {
        const asn1::Certificate& certificate = wanted.item.certificate;
        requireHoldable(certificate);
        changes.push_back(L"add " + std::wstring(container.c_str()));
        if (onAdd)
            onAdd(wanted);
        if (refusesAdditions || find(certificate))
            return;
        entries.push_back(
            {certificate, container, wanted.hasKey ? std::optional(container) : std::nullopt});
    }
    void rebind(const Buffer<wchar_t>& container, const WantedItem& wanted) override {
        changes.push_back(L"rebind " + std::wstring(container.c_str()));
        if (onRebind)
            onRebind();
        for (MemoryEntry& entry : entries)
            if (isSame(entry.certificate, wanted.item.certificate)) {
                entry.recorded = container;
                entry.bound = wanted.hasKey ? std::optional(container) : std::nullopt;
            }
    }
    void remove(const asn1::Certificate& cert) override {
        requireHoldable(cert);
        changes.push_back(L"remove " + subjectText(cert));
        if (refusesRemovals)
            return;
        std::erase_if(entries,
                      [&](const MemoryEntry& entry) { return isSame(entry.certificate, cert); });
    }

private:
    void requireHoldable(const asn1::Certificate& cert) const {
        if (refused && isSame(*refused, cert))
            throw std::logic_error("asked about a certificate that no store can hold");
    }
    const MemoryEntry* find(const asn1::Certificate& cert) const {
        requireHoldable(cert);
        const auto found =
            std::find_if(entries.begin(), entries.end(),
                         [&](const MemoryEntry& entry) { return isSame(entry.certificate, cert); });
        return found == entries.end() ? nullptr : &*found;
    }
};

} // namespace updater
