// The certificate store functions as Windows documents them, made from those of Wine.
#include "storelayer.h"

#include "crypt32.h"
#include "lacks.h"
#include "registrystore.h"
#include "storepace.h"

#include <array>
#include <cstring>
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

/// A system store that was opened: what a handle that the layer gives out stands for. Where writing
/// at once is lacking it is a copy in memory, and changes are written to the registry here.
class OpenStore {
public:
    OpenStore(HCERTSTORE handle, const wchar_t* name) : handle_(handle), registry_(name) {}

    const std::wstring& name() const { return registry_.name(); }

    void fillFrom(HCERTSTORE original) {
        const CERT_CONTEXT* certificate = nullptr;
        while ((certificate = crypt32().enumerate(original, certificate)) != nullptr)
            crypt32().addContext(handle_, certificate, CERT_STORE_ADD_ALWAYS, nullptr);
    }

    void clear() {
        finishDeletions();
        while (const CERT_CONTEXT* certificate = crypt32().enumerate(handle_, nullptr))
            crypt32().remove(certificate);
    }

    const CERT_CONTEXT* next(const CERT_CONTEXT* previous) {
        if (!previous)
            finishDeletions();
        current_ = crypt32().enumerate(handle_, previous);
        finishDeletions();
        return current_;
    }

    /// \returns false, with the last error set, if the registry does not take it
    BOOL write(const CERT_CONTEXT* certificate) const {
        return !lacks().writingAtOnce || registry_.write(certificate);
    }

    /// Deletes a certificate, where need be only once no enumeration stands on it.
    BOOL remove(const CERT_CONTEXT* certificate) {
        if (lacks().writingAtOnce && !registry_.remove(certificate)) {
            const DWORD error = GetLastError();
            crypt32().freeContext(certificate);
            SetLastError(error);
            return FALSE;
        }
        if (!lacks().deletionWhileEnumerating || certificate != current_)
            return crypt32().remove(certificate);
        waiting_.push_back(certificate);
        return TRUE;
    }

    void finishDeletions() {
        for (const CERT_CONTEXT* certificate : std::exchange(waiting_, {}))
            crypt32().remove(certificate);
    }

private:
    HCERTSTORE handle_;
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
    const HCERTSTORE original = crypt32().openSystemStore(provider, name);
    if (!original || _wcsicmp(name, L"ROOT") == 0)
        return original;
    const HCERTSTORE handle = lacks().writingAtOnce
                                  ? crypt32().openStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)
                                  : original;
    OpenStore store(handle, name);
    if (handle != original) {
        store.fillFrom(original);
        crypt32().closeStore(original, 0);
    }
    const std::lock_guard lock(openStoresMutex);
    openStores().insert_or_assign(handle, std::move(store));
    return handle;
}

BOOL WINAPI closeStore(HCERTSTORE store, DWORD flags) {
    if (OpenStore* open = openStoreOf(store)) {
        open->finishDeletions();
        const std::lock_guard lock(openStoresMutex);
        openStores().erase(store);
    }
    return crypt32().closeStore(store, flags);
}

BOOL resync(OpenStore& store) {
    const HCERTSTORE original = crypt32().openSystemStore(0, store.name().c_str());
    if (!original)
        return FALSE;
    store.clear();
    store.fillFrom(original);
    return crypt32().closeStore(original, 0);
}

BOOL WINAPI controlStore(HCERTSTORE store, DWORD flags, DWORD control, const void* parameter) {
    OpenStore* open = lacks().writingAtOnce ? openStoreOf(store) : nullptr;
    if (open && control == CERT_STORE_CTRL_RESYNC)
        return resync(*open);
    if (open && control == CERT_STORE_CTRL_COMMIT)
        return TRUE; // nothing is ever uncommitted
    return crypt32().controlStore(store, flags, control, parameter);
}

const CERT_CONTEXT* WINAPI enumerate(HCERTSTORE store, const CERT_CONTEXT* previous) {
    OpenStore* open = openStoreOf(store);
    return open ? open->next(previous) : crypt32().enumerate(store, previous);
}

bool isSame(const CERT_CONTEXT& one, const CERT_CONTEXT& other) {
    return one.cbCertEncoded == other.cbCertEncoded &&
           std::memcmp(one.pbCertEncoded, other.pbCertEncoded, one.cbCertEncoded) == 0;
}

const CERT_CONTEXT* WINAPI find(HCERTSTORE store, DWORD encoding, DWORD flags, DWORD type,
                                const void* parameter, const CERT_CONTEXT* previous) {
    if (OpenStore* open = openStoreOf(store))
        open->finishDeletions();
    const CERT_CONTEXT* found = crypt32().find(store, encoding, flags, type, parameter, previous);
    if (type == CERT_FIND_EXISTING && lacks().exactMatch)
        while (found && !isSame(*found, *static_cast<const CERT_CONTEXT*>(parameter)))
            found = crypt32().find(store, encoding, flags, type, parameter, found);
    return found;
}

bool isPresent(HCERTSTORE store, DWORD encoding, const CERT_CONTEXT* certificate) {
    std::array<BYTE, 20> hash{};
    auto size = static_cast<DWORD>(hash.size());
    crypt32().getProperty(certificate, CERT_SHA1_HASH_PROP_ID, hash.data(), &size);
    const CRYPT_HASH_BLOB blob{size, hash.data()};
    const CERT_CONTEXT* present =
        crypt32().find(store, encoding, 0, CERT_FIND_SHA1_HASH, &blob, nullptr);
    if (present)
        crypt32().freeContext(present);
    return present != nullptr;
}

/// Passes a certificate that was added on to the registry and, if asked to, to the caller.
BOOL finishAddition(const OpenStore& store, const CERT_CONTEXT* added,
                    const CERT_CONTEXT** result) {
    if (!store.write(added)) {
        const DWORD error = GetLastError();
        crypt32().remove(added);
        SetLastError(error);
        return FALSE;
    }
    if (result)
        *result = added;
    else
        crypt32().freeContext(added);
    return TRUE;
}

BOOL addToCopy(HCERTSTORE store, OpenStore& open, const CERT_CONTEXT* certificate,
               DWORD disposition, const CERT_CONTEXT** result) {
    keepPace();
    open.finishDeletions();
    if (disposition == CERT_STORE_ADD_NEW && lacks().writingAtOnce &&
        isPresent(store, certificate->dwCertEncodingType, certificate)) {
        SetLastError(static_cast<DWORD>(CRYPT_E_EXISTS));
        return FALSE;
    }
    const CERT_CONTEXT* added = nullptr;
    return crypt32().addContext(store, certificate, disposition, &added) &&
           finishAddition(open, added, result);
}

BOOL WINAPI addContext(HCERTSTORE store, const CERT_CONTEXT* certificate, DWORD disposition,
                       const CERT_CONTEXT** result) {
    OpenStore* open = openStoreOf(store);
    return open ? addToCopy(store, *open, certificate, disposition, result)
                : crypt32().addContext(store, certificate, disposition, result);
}

BOOL WINAPI addEncoded(HCERTSTORE store, DWORD encoding, const BYTE* bytes, DWORD size,
                       DWORD disposition, const CERT_CONTEXT** result) {
    OpenStore* open = openStoreOf(store);
    if (!open)
        return crypt32().addEncoded(store, encoding, bytes, size, disposition, result);
    const CERT_CONTEXT* certificate = crypt32().createContext(encoding, bytes, size);
    if (!certificate)
        return FALSE;
    const BOOL added = addToCopy(store, *open, certificate, disposition, result);
    const DWORD error = GetLastError();
    crypt32().freeContext(certificate);
    SetLastError(error);
    return added;
}

BOOL WINAPI removeCertificate(const CERT_CONTEXT* certificate) {
    OpenStore* open = openStoreOf(certificate->hCertStore);
    return open ? open->remove(certificate) : crypt32().remove(certificate);
}

DWORD keptAs(DWORD propertyId) {
    return propertyId == privatePropertyId && lacks().ownProperties ? keptPropertyId : propertyId;
}

BOOL WINAPI setProperty(const CERT_CONTEXT* certificate, DWORD id, DWORD flags, const void* value) {
    if (!crypt32().setProperty(certificate, keptAs(id), flags, value))
        return FALSE;
    const OpenStore* open = openStoreOf(certificate->hCertStore);
    return !open || open->write(certificate);
}

BOOL WINAPI getProperty(const CERT_CONTEXT* certificate, DWORD id, void* value, DWORD* size) {
    return crypt32().getProperty(certificate, keptAs(id), value, size);
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
