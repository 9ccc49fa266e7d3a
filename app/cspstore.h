// One CSP's part of a Windows store.
#pragma once

#include "registry.h"

#include "certstorehelper.h"

#include <string>

namespace updater {

/// Reads and changes the store through the library and puts its errors into words.
class CspStore final : public CspRegistry {
public:
    /// \throws Failure if the store cannot be opened
    CspStore(const std::wstring& store, const std::wstring& csp);

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

    /// The names of entries that may be this CSP's, but cannot be read as a whole, each with the
    /// reason. No other function sees them.
    std::vector<std::wstring> unreadable();

    /// Removes all entries that are ours. Ends silently where the user declines one.
    void clean();

private:
    template <class Function>
    auto reading(Function function);
    void takeBack(const asn1::Certificate& cert) noexcept;

    std::wstring name_;
    std::wstring csp_;
    pkcs11::certstoreupdater::CertStoreHelper store_;
};

} // namespace updater
