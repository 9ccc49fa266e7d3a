// One CSP's part of a Windows store.
#include "cspstore.h"

#include "certificatetext.h"
#include "der.h"
#include "failures.h"
#include "nametext.h"
#include "oids.h"
#include "text.h"

namespace updater {

using pkcs11::certstoreupdater::CertStoreHelper;
using pkcs11::certstoreupdater::CertStoreUpdaterError_AddCertificateToStoreFailed;

namespace {

std::wstring nameOf(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
    return L"\"" + subjectText(cert) + L"\" (" + toString(container) + L")";
}

/// Makes the name that a registration without a label gives, for the errors that this may meet.
void requireSubjectName(const asn1::Certificate& cert) {
    const asn1::RDNSequence subject = cert.subject().rdnSequence;
    if (const auto commonName = subject.find(asn1::id_at_commonName, 1)) {
        asn1::DirectoryString name;
        asn1::der::decode(commonName->value.encoding(), name);
        asn1::toText(name);
    } else
        asn1::toText(subject);
}

} // namespace

CspStore::CspStore(const std::wstring& store, const std::wstring& csp)
    : name_(store), csp_(csp),
      store_(during({Activity::Kind::openStore, store}, [&] { return CertStoreHelper(store); })) {}

template <class Function>
auto CspStore::reading(Function function) {
    return during({Activity::Kind::readStore, name_}, function);
}

CertMap CspStore::list() {
    return reading([&] { return std::move(*store_.listCertsByCsp(csp_, false)); });
}

bool CspStore::isInStep(const Buffer<wchar_t>& container, const asn1::Certificate& cert) {
    return reading(
        [&] { return store_.findCspCertificate(csp_, toString(container), cert, true); });
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

void CspStore::requireUsable(const Buffer<wchar_t>& container, const CertItem& item) {
    during({Activity::Kind::add, nameOf(container, item.certificate)}, [&] {
        store_.getKeySpec(item.certificate);
        if (*item.label.c_str() == 0)
            requireSubjectName(item.certificate);
    });
}

void CspStore::add(const Buffer<wchar_t>& container, const CertItem& item) {
    const Activity adding{Activity::Kind::add, nameOf(container, item.certificate)};
    during(adding, [&] {
        try {
            store_.addCspCertificate(csp_, toString(container), item.label.c_str(),
                                     item.certificate, true);
        } catch (const CertStoreUpdaterError_AddCertificateToStoreFailed&) {
            throw;
        } catch (...) {
            // The certificate is in the store, but not all that makes it ours.
            takeBack(item.certificate);
            throw;
        }
    });
}

void CspStore::remove(const asn1::Certificate& cert) {
    during({Activity::Kind::remove, nameOf({}, cert)}, [&] { store_.deleteCertificate(cert); });
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
