// The CryptoAPI functions that the library calls, each hooked, so that a test can read the order
// of calls and their arguments, fail any of them, and count references to certificates.
#pragma once

#include "importhook.h"
#include "storeview.h"

#include <windows.h>

#include <wincrypt.h>

#include <optional>
#include <string>
#include <vector>

namespace testsupport {

/// The loaded library.
void* library();

/// What a call to CertSetCertificateContextProperty was to set.
struct PropertyCall {
    DWORD id;
    DWORD flags;
    std::optional<KeyProvInfo> keyProvInfo; ///< for CERT_KEY_PROV_INFO_PROP_ID
    bool hasParameters;                     ///< its rgProvParam was not null
    Bytes blob;                             ///< for all others
};

/// What a call to CertAddEncodedCertificateToStore was to add.
struct AddCall {
    HCERTSTORE store;
    DWORD encodingType;
    Bytes encoded;
    DWORD disposition;
};

/// What a call to CertFindCertificateInStore was to find.
struct FindCall {
    HCERTSTORE store;
    DWORD encodingType;
    DWORD flags;
    DWORD type;
    Bytes wanted; ///< the encoding of the context that the parameter points at
    const CERT_CONTEXT* previous;
};

struct OpenCall {
    HCRYPTPROV_LEGACY provider;
    std::wstring name;
};

/// All hooks at once; calls pass through unless a test says otherwise. One at a time.
class CryptoApi {
    template <class Function>
    using Hook = ImportHook<Function>;

public:
    CryptoApi();

    CallLog log;
    Hook<decltype(CertOpenSystemStoreW)> openSystemStore{library(), dll, "CertOpenSystemStoreW",
                                                         &log};
    Hook<decltype(CertCloseStore)> closeStore{library(), dll, "CertCloseStore", &log};
    Hook<decltype(CertAddEncodedCertificateToStore)> addEncoded{
        library(), dll, "CertAddEncodedCertificateToStore", &log};
    Hook<decltype(CertSetCertificateContextProperty)> setProperty{
        library(), dll, "CertSetCertificateContextProperty", &log};
    Hook<decltype(CertGetCertificateContextProperty)> getProperty{
        library(), dll, "CertGetCertificateContextProperty", &log};
    Hook<decltype(CertCreateCertificateContext)> createContext{
        library(), dll, "CertCreateCertificateContext", &log};
    Hook<decltype(CertFreeCertificateContext)> freeContext{library(), dll,
                                                           "CertFreeCertificateContext", &log};
    Hook<decltype(CertDuplicateCertificateContext)> duplicate{
        library(), dll, "CertDuplicateCertificateContext", &log};
    Hook<decltype(CertCompareCertificate)> compare{library(), dll, "CertCompareCertificate", &log};
    Hook<decltype(CertFindCertificateInStore)> find{library(), dll, "CertFindCertificateInStore",
                                                    &log};
    Hook<decltype(CertEnumCertificatesInStore)> enumerate{library(), dll,
                                                          "CertEnumCertificatesInStore", &log};
    Hook<decltype(CertDeleteCertificateFromStore)> remove{library(), dll,
                                                          "CertDeleteCertificateFromStore", &log};

    std::vector<OpenCall> opened;
    std::vector<AddCall> added;
    std::vector<PropertyCall> propertiesSet;
    std::vector<FindCall> found;

    /// References to certificates that were handed to the library and that it neither freed nor
    /// gave away.
    int heldReferences() const noexcept { return heldReferences_; }

    /// The n-th deletion fails with this error. The reference is released nevertheless, as
    /// Windows does it.
    void failRemove(std::size_t n, DWORD error);

private:
    static constexpr char dll[] = "crypt32.dll";

    const CERT_CONTEXT* hold(const CERT_CONTEXT* context);
    void letGo(const CERT_CONTEXT* context);

    int heldReferences_ = 0;
};

} // namespace testsupport
