// The CryptoAPI calls that registering a certificate in a store cannot do without, and nothing
// else.
#pragma once

#include <windows.h>

#include <wincrypt.h>

#include <span>
#include <stdexcept>
#include <string>

namespace bench {

inline constexpr DWORD bindingProperty = 54086;

inline void require(bool succeeded, const char* what) {
    if (!succeeded)
        throw std::runtime_error(what);
}

inline void setProperty(const CERT_CONTEXT* context, DWORD id, const void* value) {
    require(CertSetCertificateContextProperty(context, id, 0, value) != 0,
            "CertSetCertificateContextProperty");
}

/// Adds a certificate that is not there yet, with the three properties that the library gives it.
/// \param container, csp ASCII
inline void registerBare(HCERTSTORE store, std::span<const unsigned char> certificate,
                         std::wstring container, std::wstring csp, std::wstring friendlyName) {
    const CERT_CONTEXT* context = nullptr;
    require(CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, certificate.data(),
                                             static_cast<DWORD>(certificate.size()),
                                             CERT_STORE_ADD_NEW, &context) != 0,
            "CertAddEncodedCertificateToStore");
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = container.data();
    info.pwszProvName = csp.data();
    info.dwProvType = PROV_RSA_FULL;
    info.dwKeySpec = AT_KEYEXCHANGE;
    setProperty(context, CERT_KEY_PROV_INFO_PROP_ID, &info);

    CRYPT_DATA_BLOB blob{static_cast<DWORD>((friendlyName.size() + 1) * sizeof(wchar_t)),
                         reinterpret_cast<BYTE*>(friendlyName.data())};
    setProperty(context, CERT_FRIENDLY_NAME_PROP_ID, &blob);

    std::string binding(container.begin(), container.end());
    binding += "\n" + std::string(csp.begin(), csp.end()) + "\n";
    blob = {static_cast<DWORD>(binding.size()), reinterpret_cast<BYTE*>(binding.data())};
    setProperty(context, bindingProperty, &blob);
    CertFreeCertificateContext(context);
}

} // namespace bench
