// crypt32's own functions, whatever the import table of this module says.
#pragma once

#include "importslot.h"

#include <windows.h>

#include <wincrypt.h>

namespace testsupport {

template <class Function>
Function* crypt32Function(const char* name) {
    static const HMODULE library = LoadLibraryW(L"crypt32.dll");
    return reinterpret_cast<Function*>(
        reinterpret_cast<ImportSlot::Address>(GetProcAddress(library, name)));
}

struct Crypt32 {
    decltype(::CertOpenSystemStoreW)* openSystemStore =
        crypt32Function<decltype(::CertOpenSystemStoreW)>("CertOpenSystemStoreW");
    decltype(::CertOpenStore)* openStore =
        crypt32Function<decltype(::CertOpenStore)>("CertOpenStore");
    decltype(::CertCloseStore)* closeStore =
        crypt32Function<decltype(::CertCloseStore)>("CertCloseStore");
    decltype(::CertControlStore)* controlStore =
        crypt32Function<decltype(::CertControlStore)>("CertControlStore");
    decltype(::CertEnumCertificatesInStore)* enumerate =
        crypt32Function<decltype(::CertEnumCertificatesInStore)>("CertEnumCertificatesInStore");
    decltype(::CertFindCertificateInStore)* find =
        crypt32Function<decltype(::CertFindCertificateInStore)>("CertFindCertificateInStore");
    decltype(::CertAddEncodedCertificateToStore)* addEncoded =
        crypt32Function<decltype(::CertAddEncodedCertificateToStore)>(
            "CertAddEncodedCertificateToStore");
    decltype(::CertAddCertificateContextToStore)* addContext =
        crypt32Function<decltype(::CertAddCertificateContextToStore)>(
            "CertAddCertificateContextToStore");
    decltype(::CertDeleteCertificateFromStore)* remove =
        crypt32Function<decltype(::CertDeleteCertificateFromStore)>(
            "CertDeleteCertificateFromStore");
    decltype(::CertSetCertificateContextProperty)* setProperty =
        crypt32Function<decltype(::CertSetCertificateContextProperty)>(
            "CertSetCertificateContextProperty");
    decltype(::CertGetCertificateContextProperty)* getProperty =
        crypt32Function<decltype(::CertGetCertificateContextProperty)>(
            "CertGetCertificateContextProperty");
    decltype(::CertCreateCertificateContext)* createContext =
        crypt32Function<decltype(::CertCreateCertificateContext)>("CertCreateCertificateContext");
    decltype(::CertFreeCertificateContext)* freeContext =
        crypt32Function<decltype(::CertFreeCertificateContext)>("CertFreeCertificateContext");
};

inline const Crypt32& crypt32() {
    static const Crypt32 functions;
    return functions;
}

} // namespace testsupport
