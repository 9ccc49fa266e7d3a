// Certificates in words.
#include "certificatetext.h"

#include "bufcodecs.h"
#include "der.h"
#include "nametext.h"
#include "oids.h"
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

std::wstring textOf(const asn1::Name& name, const wchar_t* ifEmpty) {
    const std::wstring text = toString(asn1::toText(name.rdnSequence));
    return text.empty() ? ifEmpty : text;
}

std::wstring dayOf(const asn1::Time& time) {
    const std::wstring text = toString(time.text());
    return text.substr(0, text.find(L'T'));
}

} // namespace

std::wstring subjectText(const asn1::Certificate& cert) {
    return orUnreadable([&] { return textOf(cert.subject(), L"(no subject)"); });
}

std::wstring issuerText(const asn1::Certificate& cert) {
    return orUnreadable([&] { return textOf(cert.issuer(), L"(no issuer)"); });
}

std::wstring serialNumberText(const asn1::Certificate& cert) {
    return toString(buffer::hexEncode(cert.serialNumber().contents()));
}

std::wstring validityText(const asn1::Certificate& cert) {
    return orUnreadable([&] {
        const asn1::Validity validity = cert.validity();
        return dayOf(validity.notBefore) + L" to " + dayOf(validity.notAfter);
    });
}

std::wstring notBeforeText(const asn1::Certificate& cert) {
    return orUnreadable([&] { return toString(cert.validity().notBefore.text()); });
}

std::wstring notAfterText(const asn1::Certificate& cert) {
    return orUnreadable([&] { return toString(cert.validity().notAfter.text()); });
}

std::wstring friendlyName(const pkcs11::certstoreupdater::CertItem& item) {
    // The library takes a label up to its first zero.
    if (*item.label.c_str() != 0)
        return item.label.c_str();
    const asn1::RDNSequence subject = item.certificate.subject().rdnSequence;
    const auto commonName = subject.find(asn1::id_at_commonName, 1);
    if (!commonName)
        return toString(asn1::toText(subject));
    asn1::DirectoryString name;
    asn1::der::decode(commonName->value.encoding(), name);
    return toString(asn1::toText(name));
}

std::wstring friendlyNameText(const pkcs11::certstoreupdater::CertItem& item) {
    return orUnreadable([&] { return friendlyName(item); });
}

std::wstring certificateText(const asn1::Certificate& cert) {
    return subjectText(cert) + L", " + validityText(cert);
}

std::wstring nameText(const buffer::Buffer<wchar_t>& container, const asn1::Certificate& cert) {
    return L"\"" + subjectText(cert) + L"\" (" + toString(container) + L")";
}

bool isSame(const asn1::Certificate& a, const asn1::Certificate& b) {
    const auto one = a.encoding();
    const auto other = b.encoding();
    return std::equal(one.begin(), one.end(), other.begin(), other.end());
}

} // namespace updater
