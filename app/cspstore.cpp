// One CSP's part of a Windows store.
#include "cspstore.h"

#include "certificatetext.h"
#include "failures.h"
#include "text.h"

#include "bufcodecs.h"
#include "der.h"

#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace updater {

using pkcs11::certstoreupdater::CertStoreHelper;
using pkcs11::certstoreupdater::CertStoreUpdaterError_AddCertificateToStoreFailed;

namespace {

struct FreeContext {
    void operator()(const CERT_CONTEXT* context) const noexcept {
        CertFreeCertificateContext(context);
    }
};
using CertContext = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

} // namespace

CspStore::CspStore(const std::wstring& store, const std::wstring& csp)
    : name_(store), csp_(csp),
      store_(during({Activity::Kind::openStore, store}, [&] { return CertStoreHelper(store); })) {}

template <class Function>
auto CspStore::reading(Function function) {
    return during({Activity::Kind::readStore, name_}, function);
}

bool CspStore::canHold(const asn1::Certificate& cert) {
    // As the library does it for each question about a certificate, with what it gets: a length
    // that a token or a store gave fits a DWORD.
    const Buffer<unsigned char> der = asn1::aux::encodeDer(cert, false);
    return CertContext(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(),
                                                    static_cast<DWORD>(der.size()))) != nullptr;
}

CertMap CspStore::list() {
    return reading([&] { return std::move(*store_.listCertsByCsp(csp_, false)); });
}

std::vector<Registered> CspStore::registered() {
    std::vector<Registered> registered;
    reading([&] {
        for (auto& entry : store_.listEntries())
            if (entry.registration && entry.registration->cspName == csp_ && entry.certificate)
                registered.push_back(
                    {entry.registration->containerName.c_str(), std::move(*entry.certificate)});
    });
    std::stable_sort(
        registered.begin(), registered.end(),
        [](const Registered& a, const Registered& b) { return a.container < b.container; });
    return registered;
}

std::vector<std::wstring> CspStore::unreadable() {
    std::vector<std::wstring> names;
    const auto isOfCsp = [&](const auto& binding) { return binding && binding->cspName == csp_; };
    for (const auto& entry : reading([&] { return store_.listEntries(); })) {
        const bool isOurBusiness =
            entry.propertyError || isOfCsp(entry.registration) || isOfCsp(entry.keyProvider);
        if (const auto& error = entry.propertyError ? entry.propertyError : entry.certificateError;
            error && isOurBusiness)
            names.push_back(
                (entry.certificate ? subjectText(*entry.certificate) : L"(unreadable)") +
                L", thumbprint " + toString(buffer::hexEncode(entry.thumbprint)) + L": " +
                describe(*error));
    }
    return names;
}

bool CspStore::isInStep(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    return reading([&] {
        const auto isRegistered = [&](bool requireKeyProvInfo) {
            return store_.findCspCertificate(csp_, toString(container), wanted.item.certificate,
                                             requireKeyProvInfo);
        };
        return wanted.hasKey ? isRegistered(true) : isRegistered(false) && !isRegistered(true);
    });
}

bool CspStore::isOurs(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
    return reading([&] { return store_.findCspCertificate(csp_, toString(container), cert); });
}

bool CspStore::isOurs(const asn1::Certificate& cert) {
    return reading([&] { return store_.findCspCertificate(csp_, cert); });
}

bool CspStore::isPresent(const asn1::Certificate& cert) {
    return reading([&] { return store_.findCertificate(cert); });
}

void CspStore::requireUsable(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    during({Activity::Kind::add, nameText(container, wanted.item.certificate)}, [&] {
        if (wanted.hasKey)
            store_.getKeySpec(wanted.item.certificate);
        friendlyName(wanted.item);
    });
}

void CspStore::add(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    const CertItem& item = wanted.item;
    during({Activity::Kind::add, nameText(container, item.certificate)}, [&] {
        try {
            store_.addCspCertificate(csp_, toString(container), item.label.c_str(),
                                     item.certificate, wanted.hasKey);
        } catch (const CertStoreUpdaterError_AddCertificateToStoreFailed&) {
            throw;
        } catch (...) {
            // The certificate is in the store, but not all that makes it ours.
            takeBack(item.certificate);
            throw;
        }
    });
}

void CspStore::rebind(const Buffer<wchar_t>& container, const WantedItem& wanted) {
    const CertItem& item = wanted.item;
    during({Activity::Kind::add, nameText(container, item.certificate)}, [&] {
        store_.rebindCspCertificate(csp_, toString(container), item.label.c_str(), item.certificate,
                                    wanted.hasKey);
    });
}

void CspStore::remove(const asn1::Certificate& cert) {
    during({Activity::Kind::remove, nameText({}, cert)}, [&] { store_.deleteCertificate(cert); });
}

void CspStore::clean() {
    during({Activity::Kind::clean, csp_}, [&] { store_.deleteCspCertificates(csp_, false); });
}

void CspStore::takeBack(const asn1::Certificate& cert) noexcept {
    try {
        store_.deleteCertificate(cert);
    } catch (const std::exception&) {
        // What went wrong first is what is reported; the entry shows up as one that is not ours.
    }
}

} // namespace updater
