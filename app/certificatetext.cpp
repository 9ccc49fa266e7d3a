// Certificates in words.
#include "certificatetext.h"

#include "nametext.h"
#include "text.h"

#include <algorithm>

namespace updater {

namespace {

/// What is shown must not fail for what it shows: a strictly decoded certificate can still hold
/// a name whose attributes are malformed.
template <class Function>
std::wstring orUnreadable(Function function) {
    try {
        return printable(function());
    } catch (const korv::GenericEvent&) {
        return L"(unreadable)";
    }
}

std::wstring dayOf(const asn1::Time& time) {
    const std::wstring text = toString(time.text());
    return text.substr(0, text.find(L'T'));
}

} // namespace

std::wstring subjectText(const asn1::Certificate& cert) {
    return orUnreadable([&] {
        const std::wstring text = toString(asn1::toText(cert.subject().rdnSequence));
        return text.empty() ? std::wstring(L"(no subject)") : text;
    });
}

std::wstring validityText(const asn1::Certificate& cert) {
    return orUnreadable([&] {
        const asn1::Validity validity = cert.validity();
        return dayOf(validity.notBefore) + L" to " + dayOf(validity.notAfter);
    });
}

std::wstring certificateText(const asn1::Certificate& cert) {
    return subjectText(cert) + L", " + validityText(cert);
}

bool isSame(const asn1::Certificate& a, const asn1::Certificate& b) {
    const auto one = a.encoding();
    const auto other = b.encoding();
    return std::equal(one.begin(), one.end(), other.begin(), other.end());
}

} // namespace updater
