// The CryptoAPI functions that the library calls, each hooked.
#include "cryptoapi.h"

namespace testsupport {

namespace {

PropertyCall copyOf(DWORD id, DWORD flags, const void* value) {
    if (id == CERT_KEY_PROV_INFO_PROP_ID) {
        const auto& info = *static_cast<const CRYPT_KEY_PROV_INFO*>(value);
        return {id, flags, KeyProvInfo::of(info), info.rgProvParam != nullptr, {}};
    }
    const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(value);
    return {id, flags, std::nullopt, false, Bytes(blob.pbData, blob.pbData + blob.cbData)};
}

Bytes encodingOf(const void* contextOrNull) {
    if (!contextOrNull)
        return {};
    const auto& context = *static_cast<const CERT_CONTEXT*>(contextOrNull);
    return Bytes(context.pbCertEncoded, context.pbCertEncoded + context.cbCertEncoded);
}

} // namespace

void* library() {
    return GetModuleHandleW(L"certstoreupdater.dll");
}

CryptoApi::CryptoApi() {
    openSystemStore.replace([this](HCRYPTPROV_LEGACY provider, LPCWSTR name) {
        opened.push_back({provider, name});
        return openSystemStore.original(provider, name);
    });
    addEncoded.replace([this](HCERTSTORE store, DWORD encodingType, const BYTE* bytes, DWORD size,
                              DWORD disposition, PCCERT_CONTEXT* result) {
        added.push_back({store, encodingType, Bytes(bytes, bytes + size), disposition});
        const BOOL succeeded =
            addEncoded.original(store, encodingType, bytes, size, disposition, result);
        if (succeeded)
            hold(*result);
        return succeeded;
    });
    setProperty.replace([this](PCCERT_CONTEXT context, DWORD id, DWORD flags, const void* value) {
        propertiesSet.push_back(copyOf(id, flags, value));
        return setProperty.original(context, id, flags, value);
    });
    createContext.replace([this](DWORD encodingType, const BYTE* bytes, DWORD size) {
        return hold(createContext.original(encodingType, bytes, size));
    });
    freeContext.replace([this](PCCERT_CONTEXT context) {
        letGo(context);
        return freeContext.original(context);
    });
    duplicate.replace([this](PCCERT_CONTEXT context) { return hold(duplicate.original(context)); });
    find.replace([this](HCERTSTORE store, DWORD encodingType, DWORD flags, DWORD type,
                        const void* parameter, PCCERT_CONTEXT previous) {
        found.push_back({store, encodingType, flags, type, encodingOf(parameter), previous});
        return hold(find.original(store, encodingType, flags, type, parameter, previous));
    });
    enumerate.replace([this](HCERTSTORE store, PCCERT_CONTEXT previous) {
        letGo(previous);
        return hold(enumerate.original(store, previous));
    });
    remove.replace([this](PCCERT_CONTEXT context) {
        letGo(context);
        return remove.original(context);
    });
}

void CryptoApi::failRemove(std::size_t n, DWORD error) {
    remove.onCall(n, [this, error](PCCERT_CONTEXT context) {
        letGo(context);
        freeContext.original(context);
        SetLastError(error);
        return FALSE;
    });
}

const CERT_CONTEXT* CryptoApi::hold(const CERT_CONTEXT* context) {
    if (context)
        ++heldReferences_;
    return context;
}

void CryptoApi::letGo(const CERT_CONTEXT* context) {
    if (context)
        --heldReferences_;
}

} // namespace testsupport
