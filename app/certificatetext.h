// Certificates in words.
#pragma once

#include "certitem.h"

#include <string>

namespace updater {

/// The subject as one line; what cannot be read is said to be so.
std::wstring subjectText(const asn1::Certificate& cert);

/// The issuer as one line, likewise.
std::wstring issuerText(const asn1::Certificate& cert);

/// The serial number in hexadecimal, two digits for each octet.
std::wstring serialNumberText(const asn1::Certificate& cert);

/// The first and the last day of validity: "2026-01-01 to 2027-12-31".
std::wstring validityText(const asn1::Certificate& cert);

/// The first and the last moment of validity as ISO 8601 has them: "2026-01-01T00:00:00Z".
std::wstring notBeforeText(const asn1::Certificate& cert);
std::wstring notAfterText(const asn1::Certificate& cert);

/// The friendly name that a certificate is registered with: its label or, if that is empty, its
/// common name or, if there is none, its subject.
/// \throws korv::GenericEvent if the name is malformed
std::wstring friendlyName(const pkcs11::certstoreupdater::CertItem& item);
/// The same for people; what cannot be read is said to be so.
std::wstring friendlyNameText(const pkcs11::certstoreupdater::CertItem& item);

/// Subject and validity.
std::wstring certificateText(const asn1::Certificate& cert);

/// A certificate as messages name it: its subject in quotation marks, and its container.
std::wstring nameText(const buffer::Buffer<wchar_t>& container, const asn1::Certificate& cert);

/// Whether two certificates are the same one, octet by octet.
bool isSame(const asn1::Certificate& a, const asn1::Certificate& b);

} // namespace updater
