// The certificate store functions as Windows documents them, made from those of Wine 8.0.
#include "storelayer.h"

#include "registrystore.h"

#include <array>
#include <cwchar>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace testsupport {

namespace {

constexpr DWORD privatePropertyId = 54086;
constexpr DWORD keptPropertyId = 64; // CERT_RENEWAL_PROP_ID

template <class Function>
Function* crypt32(const char* name) {
    static const HMODULE library = LoadLibraryW(L"crypt32.dll");
    return reinterpret_cast<Function*>(
        reinterpret_cast<ImportSlot::Address>(GetProcAddress(library, name)));
}

/// Wine's own functions, whatever the import table of this module says.
struct Wine {
    decltype(::CertOpenSystemStoreW)* openSystemStore =
        crypt32<decltype(::CertOpenSystemStoreW)>("CertOpenSystemStoreW");
    decltype(::CertOpenStore)* openStore = crypt32<decltype(::CertOpenStore)>("CertOpenStore");
    decltype(::CertCloseStore)* closeStore = crypt32<decltype(::CertCloseStore)>("CertCloseStore");
    decltype(::CertControlStore)* controlStore =
        crypt32<decltype(::CertControlStore)>("CertControlStore");
    decltype(::CertEnumCertificatesInStore)* enumerate =
        crypt32<decltype(::CertEnumCertificatesInStore)>("CertEnumCertificatesInStore");
    decltype(::CertFindCertificateInStore)* find =
        crypt32<decltype(::CertFindCertificateInStore)>("CertFindCertificateInStore");
    decltype(::CertAddEncodedCertificateToStore)* addEncoded =
        crypt32<decltype(::CertAddEncodedCertificateToStore)>("CertAddEncodedCertificateToStore");
    decltype(::CertAddCertificateContextToStore)* addContext =
        crypt32<decltype(::CertAddCertificateContextToStore)>("CertAddCertificateContextToStore");
    decltype(::CertDeleteCertificateFromStore)* remove =
        crypt32<decltype(::CertDeleteCertificateFromStore)>("CertDeleteCertificateFromStore");
    decltype(::CertSetCertificateContextProperty)* setProperty =
        crypt32<decltype(::CertSetCertificateContextProperty)>("CertSetCertificateContextProperty");
    decltype(::CertGetCertificateContextProperty)* getProperty =
        crypt32<decltype(::CertGetCertificateContextProperty)>("CertGetCertificateContextProperty");
    decltype(::CertCreateCertificateContext)* createContext =
        crypt32<decltype(::CertCreateCertificateContext)>("CertCreateCertificateContext");
    decltype(::CertFreeCertificateContext)* freeContext =
        crypt32<decltype(::CertFreeCertificateContext)>("CertFreeCertificateContext");
};

const Wine& wine() {
    static const Wine functions;
    return functions;
}

/// A copy in memory of a system store: what the handles that the layer gives out stand for.
class OpenStore {
public:
    OpenStore(HCERTSTORE copy, const wchar_t* name) : copy_(copy), registry_(name) {}

    const RegistryStore& registry() const { return registry_; }

    void fillFrom(HCERTSTORE original) {
        const CERT_CONTEXT* certificate = nullptr;
        while ((certificate = wine().enumerate(original, certificate)) != nullptr)
            wine().addContext(copy_, certificate, CERT_STORE_ADD_ALWAYS, nullptr);
    }

    void clear() {
        finishDeletions();
        while (const CERT_CONTEXT* certificate = wine().enumerate(copy_, nullptr))
            wine().remove(certificate);
    }

    const CERT_CONTEXT* next(const CERT_CONTEXT* previous) {
        if (!previous)
            finishDeletions();
        current_ = wine().enumerate(copy_, previous);
        finishDeletions();
        return current_;
    }

    /// Deletes a certificate, from this copy only once no enumeration stands on it.
    BOOL remove(const CERT_CONTEXT* certificate) {
        if (!registry_.remove(certificate)) {
            const DWORD error = GetLastError();
            wine().freeContext(certificate);
            SetLastError(error);
            return FALSE;
        }
        if (certificate != current_)
            return wine().remove(certificate);
        waiting_.push_back(certificate);
        return TRUE;
    }

    void finishDeletions() {
        for (const CERT_CONTEXT* certificate : std::exchange(waiting_, {}))
            wine().remove(certificate);
    }

private:
    HCERTSTORE copy_;
    RegistryStore registry_;
    const CERT_CONTEXT* current_ = nullptr; // the enumeration's; only ever compared
    std::vector<const CERT_CONTEXT*> waiting_;
};

std::mutex openStoresMutex;

std::map<HCERTSTORE, OpenStore>& openStores() {
    static std::map<HCERTSTORE, OpenStore> stores;
    return stores;
}

/// The layer's record of a handle, or null if the handle is none of its own.
OpenStore* openStoreOf(HCERTSTORE store) {
    const std::lock_guard lock(openStoresMutex);
    const auto found = openStores().find(store);
    return found == openStores().end() ? nullptr : &found->second;
}

HCERTSTORE WINAPI openSystemStore(HCRYPTPROV_LEGACY provider, const wchar_t* name) {
    const HCERTSTORE original = wine().openSystemStore(provider, name);
    if (!original || _wcsicmp(name, L"ROOT") == 0)
        return original;
    const HCERTSTORE copy = wine().openStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
    OpenStore store(copy, name);
    store.fillFrom(original);
    wine().closeStore(original, 0);
    const std::lock_guard lock(openStoresMutex);
    openStores().insert_or_assign(copy, std::move(store));
    return copy;
}

BOOL WINAPI closeStore(HCERTSTORE store, DWORD flags) {
    if (OpenStore* open = openStoreOf(store)) {
        open->finishDeletions();
        const std::lock_guard lock(openStoresMutex);
        openStores().erase(store);
    }
    return wine().closeStore(store, flags);
}

BOOL resync(OpenStore& store) {
    const HCERTSTORE original = wine().openSystemStore(0, store.registry().name().c_str());
    if (!original)
        return FALSE;
    store.clear();
    store.fillFrom(original);
    return wine().closeStore(original, 0);
}

BOOL WINAPI controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter) {
    OpenStore* open = openStoreOf(store);
    if (open && control == CERT_STORE_CTRL_RESYNC)
        return resync(*open);
    if (open && control == CERT_STORE_CTRL_COMMIT)
        return TRUE; // nothing is ever uncommitted
    return wine().controlStore(store, flags, control, parameter);
}

const CERT_CONTEXT* WINAPI enumerate(HCERTSTORE store, const CERT_CONTEXT* previous) {
    OpenStore* open = openStoreOf(store);
    return open ? open->next(previous) : wine().enumerate(store, previous);
}

const CERT_CONTEXT* WINAPI find(HCERTSTORE store, DWORD encoding, DWORD flags, DWORD type,
                                const void* parameter, const CERT_CONTEXT* previous) {
    if (OpenStore* open = openStoreOf(store))
        open->finishDeletions();
    return wine().find(store, encoding, flags, type, parameter, previous);
}

bool isPresent(HCERTSTORE store, DWORD encoding, const CERT_CONTEXT* certificate) {
    std::array<BYTE, 20> hash{};
    auto size = static_cast<DWORD>(hash.size());
    wine().getProperty(certificate, CERT_SHA1_HASH_PROP_ID, hash.data(), &size);
    const CRYPT_HASH_BLOB blob{size, hash.data()};
    const CERT_CONTEXT* present =
        wine().find(store, encoding, 0, CERT_FIND_SHA1_HASH, &blob, nullptr);
    if (present)
        wine().freeContext(present);
    return present != nullptr;
}

/// Passes a certificate that was added on to the registry and, if asked to, to the caller.
BOOL finishAddition(const OpenStore& store, const CERT_CONTEXT* added,
                    const CERT_CONTEXT** result) {
    if (!store.registry().write(added)) {
        const DWORD error = GetLastError();
        wine().remove(added);
        SetLastError(error);
        return FALSE;
    }
    if (result)
        *result = added;
    else
        wine().freeContext(added);
    return TRUE;
}

BOOL addToCopy(HCERTSTORE store, OpenStore& open, const CERT_CONTEXT* certificate,
               DWORD disposition, const CERT_CONTEXT** result) {
    open.finishDeletions();
    if (disposition == CERT_STORE_ADD_NEW &&
        isPresent(store, certificate->dwCertEncodingType, certificate)) {
        SetLastError(static_cast<DWORD>(CRYPT_E_EXISTS));
        return FALSE;
    }
    const CERT_CONTEXT* added = nullptr;
    return wine().addContext(store, certificate, disposition, &added) &&
           finishAddition(open, added, result);
}

BOOL WINAPI addContext(HCERTSTORE store, const CERT_CONTEXT* certificate, DWORD disposition,
                       const CERT_CONTEXT** result) {
    OpenStore* open = openStoreOf(store);
    return open ? addToCopy(store, *open, certificate, disposition, result)
                : wine().addContext(store, certificate, disposition, result);
}

BOOL WINAPI addEncoded(HCERTSTORE store, DWORD encoding, const BYTE* bytes, DWORD size,
                       DWORD disposition, const CERT_CONTEXT** result) {
    OpenStore* open = openStoreOf(store);
    if (!open)
        return wine().addEncoded(store, encoding, bytes, size, disposition, result);
    const CERT_CONTEXT* certificate = wine().createContext(encoding, bytes, size);
    if (!certificate)
        return FALSE;
    const BOOL added = addToCopy(store, *open, certificate, disposition, result);
    const DWORD error = GetLastError();
    wine().freeContext(certificate);
    SetLastError(error);
    return added;
}

BOOL WINAPI removeCertificate(const CERT_CONTEXT* certificate) {
    OpenStore* open = openStoreOf(certificate->hCertStore);
    return open ? open->remove(certificate) : wine().remove(certificate);
}

DWORD keptAs(DWORD propertyId) {
    return propertyId == privatePropertyId ? keptPropertyId : propertyId;
}

BOOL WINAPI setProperty(const CERT_CONTEXT* certificate, DWORD id, DWORD flags, const void* value) {
    if (!wine().setProperty(certificate, keptAs(id), flags, value))
        return FALSE;
    const OpenStore* open = openStoreOf(certificate->hCertStore);
    return !open || open->registry().write(certificate);
}

BOOL WINAPI getProperty(const CERT_CONTEXT* certificate, DWORD id, void* value, DWORD* size) {
    return wine().getProperty(certificate, keptAs(id), value, size);
}

template <class Function>
StoreLayerFunction entry(std::string_view name, Function* replacement) {
    return {name, reinterpret_cast<ImportSlot::Address>(replacement)};
}

} // namespace

StoreLayerFunctions storeLayerFunctions() {
    static const StoreLayerFunction functions[] = {
        entry("CertOpenSystemStoreW", openSystemStore),
        entry("CertCloseStore", closeStore),
        entry("CertControlStore", controlStore),
        entry("CertEnumCertificatesInStore", enumerate),
        entry("CertFindCertificateInStore", find),
        entry("CertAddEncodedCertificateToStore", addEncoded),
        entry("CertAddCertificateContextToStore", addContext),
        entry("CertDeleteCertificateFromStore", removeCertificate),
        entry("CertSetCertificateContextProperty", setProperty),
        entry("CertGetCertificateContextProperty", getProperty),
    };
    return {std::begin(functions), std::end(functions)};
}

} // namespace testsupport
