// What the crypt32 that runs here lacks of what Windows documents.
#include "lacks.h"

#include "certbuilder.h"
#include "crypt32.h"
#include "hex.h"
#include "runningonwine.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

namespace testsupport {

namespace {

struct StoreCloser {
    using pointer = HCERTSTORE;
    void operator()(HCERTSTORE store) const { crypt32().closeStore(store, 0); }
};
using Store = std::unique_ptr<void, StoreCloser>;

struct ContextFreer {
    void operator()(const CERT_CONTEXT* context) const { crypt32().freeContext(context); }
};
using Context = std::unique_ptr<const CERT_CONTEXT, ContextFreer>;

Store memoryStore() {
    return Store(crypt32().openStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
}

Context contextOf(const Bytes& certificate) {
    return Context(crypt32().createContext(X509_ASN_ENCODING, certificate.data(),
                                           static_cast<DWORD>(certificate.size())));
}

Context certificate(std::int64_t serialNumber) {
    return contextOf(CertBuilder().serialNumber(serialNumber).build());
}

Context addTo(const Store& store, const Context& certificate) {
    const CERT_CONTEXT* added = nullptr;
    crypt32().addContext(store.get(), certificate.get(), CERT_STORE_ADD_NEW, &added);
    return Context(added);
}

void remove(const Context& certificate) {
    crypt32().remove(CertDuplicateCertificateContext(certificate.get()));
}

bool keepsOwnProperties() {
    constexpr DWORD own = 54086;
    std::array<BYTE, 2> bytes{1, 2};
    const CRYPT_DATA_BLOB blob{2, bytes.data()};
    const Context added = addTo(memoryStore(), certificate(1));
    std::array<BYTE, 2> kept{};
    auto size = static_cast<DWORD>(kept.size());
    return crypt32().setProperty(added.get(), own, 0, &blob) &&
           crypt32().getProperty(added.get(), own, kept.data(), &size) && kept == bytes;
}

bool enumeratesPastADeletion() {
    constexpr int certificates = 2;
    const Store store = memoryStore();
    for (int number = 1; number <= certificates; ++number)
        addTo(store, certificate(number));
    const CERT_CONTEXT* current = nullptr;
    int seen = 0;
    while (seen <= certificates && (current = crypt32().enumerate(store.get(), current))) {
        ++seen;
        crypt32().remove(CertDuplicateCertificateContext(current));
    }
    if (current)
        crypt32().freeContext(current);
    return seen == certificates;
}

bool findsExactMatchesOnly() {
    const Store store = memoryStore();
    addTo(store, certificate(1));
    const Context reissued =
        contextOf(CertBuilder().serialNumber(1).subject(name({{"CN", "another subject"}})).build());
    const Context found(crypt32().find(store.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING,
                                       reissued.get(), nullptr));
    return !found;
}

/// A system store of this process alone, gone with the object.
class SystemStore {
public:
    SystemStore()
        : name_(L"CSU-Lacks-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                std::to_wstring(GetTickCount64())) {}
    SystemStore(const SystemStore&) = delete;
    SystemStore& operator=(const SystemStore&) = delete;
    ~SystemStore() { RegDeleteTreeW(HKEY_CURRENT_USER, key().c_str()); }

    Store open() const { return Store(crypt32().openSystemStore(0, name_.c_str())); }

    /// How many bytes the registry has of a certificate and its properties; 0 if it has none.
    DWORD sizeOf(const Context& certificate) const {
        std::array<BYTE, 20> hash{};
        auto hashSize = static_cast<DWORD>(hash.size());
        crypt32().getProperty(certificate.get(), CERT_SHA1_HASH_PROP_ID, hash.data(), &hashSize);
        const std::string digits = toHex(hash);
        const std::wstring path =
            key() + L"\\Certificates\\" + std::wstring(digits.begin(), digits.end());
        DWORD size = 0;
        const LSTATUS status = RegGetValueW(HKEY_CURRENT_USER, path.c_str(), L"Blob",
                                            RRF_RT_REG_BINARY, nullptr, nullptr, &size);
        return status == ERROR_SUCCESS ? size : 0;
    }

private:
    std::wstring key() const { return L"Software\\Microsoft\\SystemCertificates\\" + name_; }

    std::wstring name_;
};

bool writesChangesAtOnce() {
    const SystemStore systemStore;
    const Store store = systemStore.open();
    const Context held = addTo(store, certificate(1));
    const DWORD plain = systemStore.sizeOf(held);
    std::wstring name = L"name";
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t)),
                               reinterpret_cast<BYTE*>(name.data())};
    crypt32().setProperty(held.get(), CERT_FRIENDLY_NAME_PROP_ID, 0, &blob);
    const DWORD named = systemStore.sizeOf(held);
    remove(held);
    return plain != 0 && named > plain && systemStore.sizeOf(held) == 0;
}

bool leavesOthersDeletionsAlone() {
    const SystemStore systemStore;
    const Context first = certificate(1);
    addTo(systemStore.open(), first);
    {
        const Store openedEarlier = systemStore.open();
        const Store other = systemStore.open();
        const Context found(
            crypt32().find(other.get(), X509_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr, nullptr));
        if (found)
            remove(found);
        addTo(openedEarlier, certificate(2));
    }
    return systemStore.sizeOf(first) == 0;
}

Lacks ask() {
    if (!runningOnWine())
        return {};
    return {.ownProperties = !keepsOwnProperties(),
            .deletionWhileEnumerating = !enumeratesPastADeletion(),
            .writingAtOnce = !writesChangesAtOnce() || !leavesOthersDeletionsAlone(),
            .exactMatch = !findsExactMatchesOnly()};
}

} // namespace

const Lacks& lacks() {
    static const Lacks answers = ask();
    return answers;
}

} // namespace testsupport
