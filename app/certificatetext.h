// Certificates in words.
#pragma once

#include "certitem.h"

#include <string>

namespace updater {

/// The subject as one line; what cannot be read is said to be so.
std::wstring subjectText(const asn1::Certificate& cert);

/// The first and the last day of validity: "2026-01-01 to 2027-12-31".
std::wstring validityText(const asn1::Certificate& cert);

/// Subject and validity.
std::wstring certificateText(const asn1::Certificate& cert);

/// Whether two certificates are the same one, octet by octet.
bool isSame(const asn1::Certificate& a, const asn1::Certificate& b);

} // namespace updater
