// Certificates of a token in a Windows system store.
#include "certstorehelper.h"

#include "cspbinding.h"
#include "der.h"
#include "makeevent.h"
#include "nametext.h"
#include "oids.h"

#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

namespace pkcs11::certstoreupdater {

namespace {

constexpr wchar_t sourceFile[] = L"src\\certstorehelper.cpp";

static_assert(std::is_same_v<HCERTSTORE, void*>);

struct FreeContext {
    void operator()(const CERT_CONTEXT* context) const noexcept {
        CertFreeCertificateContext(context);
    }
};
/// Owns one reference. Enumerating releases the previous context, and deleting releases the
/// deleted one, whatever the outcome: hand either of them a context by `release()`.
using CertContext = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

bool fitsDword(std::size_t size) {
    return size <= std::numeric_limits<DWORD>::max();
}

/// For structures of Windows that declare as writable what is only read.
template <class T>
T* writable(const T* text) {
    return const_cast<T*>(text);
}

bool setBlobProperty(const CERT_CONTEXT* context, DWORD id, const void* data, std::size_t size) {
    if (!fitsDword(size))
        return false;
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>(size), writable(static_cast<const BYTE*>(data))};
    return CertSetCertificateContextProperty(context, id, 0, &blob) != FALSE;
}

/// The result of looking for a certificate in a store.
struct Located {
    CertContext wanted;        ///< made from the certificate that is looked for
    const CERT_CONTEXT* found; ///< null if it is not there; a reference that nobody owns yet
};

Located locate(HCERTSTORE store, const asn1::Certificate& cert) {
    const Buffer<unsigned char> der = asn1::aux::encodeDer(cert, false);
    if (!fitsDword(der.size()))
        return {nullptr, nullptr};
    CertContext wanted(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(),
                                                    static_cast<DWORD>(der.size())));
    const CERT_CONTEXT* found = CertFindCertificateInStore(
        store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, wanted.get(), nullptr);
    return {std::move(wanted), found};
}

/// Null if the user declined or the certificate is already there; otherwise a reference to the
/// added certificate, which the caller has to free.
const CERT_CONTEXT* addToStore(HCERTSTORE store, const asn1::Certificate& certificate) {
    const Buffer<unsigned char> der = asn1::aux::encodeDer(certificate, false);
    if (!fitsDword(der.size()))
        throw korv::makeEvent<CertStoreUpdaterError_AddCertificateToStoreFailed>(sourceFile);
    const CERT_CONTEXT* added = nullptr;
    if (CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, der.data(),
                                         static_cast<DWORD>(der.size()), CERT_STORE_ADD_NEW,
                                         &added))
        return added;
    const DWORD error = GetLastError();
    if (error == ERROR_CANCELLED || error == static_cast<DWORD>(CRYPT_E_EXISTS))
        return nullptr;
    throw korv::makeEvent<CertStoreUpdaterError_AddCertificateToStoreFailed>(sourceFile);
}

/// \param info null to remove it
void writeKeyProvInfo(const CERT_CONTEXT* context, const CspBinding& binding,
                      const CRYPT_KEY_PROV_INFO* info) {
    if (!CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, info))
        throw korv::makeEvent<CertStoreUpdaterError_SetKeyProviderInfoFailed>(
            sourceFile, {{L"CSP", binding.cspName}, {L"CONTAINER", binding.containerName}});
}

void setKeyProvInfo(const CERT_CONTEXT* context, const CspBinding& binding, DWORD keySpec) {
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = writable(binding.containerName.c_str());
    info.pwszProvName = writable(binding.cspName.c_str());
    info.dwProvType = PROV_RSA_FULL;
    info.dwKeySpec = keySpec;
    writeKeyProvInfo(context, binding, &info);
}

void setFriendlyName(const CERT_CONTEXT* context, const CspBinding& binding,
                     const std::wstring& friendlyName) {
    if (!setBlobProperty(context, CERT_FRIENDLY_NAME_PROP_ID, friendlyName.c_str(),
                         (friendlyName.size() + 1) * sizeof(wchar_t)))
        throw korv::makeEvent<CertStoreUpdaterError_SetCertFriendlyNameFailed>(
            sourceFile, {{L"CSP", binding.cspName},
                         {L"CONTAINER", binding.containerName},
                         {L"FRIENDLYNAME", friendlyName}});
}

void setKorvaneCspRef(const CERT_CONTEXT* context, const CspBinding& binding) {
    const Buffer<unsigned char> value = encodeKorvaneCspRef(binding);
    if (!setBlobProperty(context, korvaneCspRefPropertyId, value.data(), value.size()))
        throw korv::makeEvent<CertStoreUpdaterError_SetCertKorvaneCspRefFailed>(
            sourceFile, {{L"CSP", binding.cspName}});
}

std::wstring toString(const Buffer<wchar_t>& text) {
    return std::wstring(text.c_str(), text.size());
}

/// The subject's first commonName, or all of the subject.
std::wstring defaultFriendlyName(const asn1::Certificate& certificate) {
    const asn1::RDNSequence subject = certificate.subject().rdnSequence;
    const auto commonName = subject.find(asn1::id_at_commonName, 1);
    if (!commonName)
        return toString(asn1::toText(subject));
    asn1::DirectoryString text;
    asn1::aux::decodeBer(commonName->value.encoding(), text, true);
    return toString(asn1::toText(text));
}

/// Deletes the certificate that an enumeration stands on, by a second reference, so that the
/// enumeration can go on. False if the user declined.
bool deleteDuplicateOf(const CERT_CONTEXT* current) {
    CertContext duplicate(CertDuplicateCertificateContext(current));
    if (!duplicate)
        throw korv::makeEvent<CertStoreUpdaterError_DuplicateCertificatePointerFailed>(sourceFile);
    if (!CertCompareCertificate(X509_ASN_ENCODING, duplicate->pCertInfo, current->pCertInfo))
        throw korv::makeEvent<CertStoreUpdaterError_DuplicateCertificateMismatch>(sourceFile);
    if (CertDeleteCertificateFromStore(duplicate.release()))
        return true;
    if (GetLastError() == ERROR_CANCELLED)
        return false;
    throw korv::makeEvent<CertStoreUpdaterError_DeleteCertificateFailed>(sourceFile);
}

BufferRange<unsigned char> encodingOf(const CERT_CONTEXT* context) {
    return {context->pbCertEncoded, std::size_t{context->cbCertEncoded}};
}

CertItem itemOf(const CERT_CONTEXT* context) {
    CertItem item;
    asn1::der::decode(encodingOf(context), item.certificate);
    return item;
}

/// Null if Windows cannot compute it. Asked for as a property, it would be stored as one.
Buffer<unsigned char> sha1Of(BufferRange<unsigned char> bytes) {
    Buffer<unsigned char> digest(20);
    auto size = static_cast<DWORD>(digest.size());
    if (!CryptHashCertificate(0, CALG_SHA1, 0, bytes.data(), static_cast<DWORD>(bytes.size()),
                              digest.detach(), &size))
        digest.reset();
    return digest;
}

std::wstring textOf(const wchar_t* nameOrNull) {
    return nameOrNull ? nameOrNull : L"";
}

/// UTF-16 up to its terminator, should it have one.
std::wstring textOf(const Buffer<unsigned char>& property) {
    std::wstring text(property.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), property.data(), text.size() * sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

/// Does what `read` does.
/// \returns the event that it throws, or null
template <class Read>
std::shared_ptr<const korv::GenericEvent> errorOf(Read read) {
    try {
        read();
        return nullptr;
    } catch (const korv::GenericEvent& event) {
        return event.clone();
    }
}

void setProperties(const CERT_CONTEXT* context, const CspBinding& binding,
                   const std::wstring& friendlyName, const asn1::Certificate& certificate) {
    setFriendlyName(context, binding,
                    friendlyName.empty() ? defaultFriendlyName(certificate) : friendlyName);
    setKorvaneCspRef(context, binding);
}

} // namespace

/// A certificate in the store, asked what it is bound to. Does not own the context.
class CertStoreHelper::StoredCertificate {
public:
    explicit StoredCertificate(const CERT_CONTEXT* context) noexcept : context_(context) {}

    /// Whether its `KorvaneCspRef` property names the CSP and the container (any, if that is
    /// empty) and, if `requireKeyProvInfo`, its key provider information does, too.
    bool isBoundTo(const std::wstring& cspName, const std::wstring& containerName,
                   bool requireKeyProvInfo) const {
        const auto recorded = korvaneCspRef();
        if (!recorded || !recorded->isTo(cspName, containerName))
            return false;
        if (!requireKeyProvInfo)
            return true;
        const auto provided = keyProvInfo();
        return provided && provided->isTo(cspName, containerName);
    }

    /// The container under which a listing of the CSP (any, if that is empty) shows it; nothing
    /// if it is not listed. Key provider information, where there is any, decides alone.
    std::optional<std::wstring> listedContainer(const std::wstring& cspName,
                                                bool requireKeyProvInfo) const {
        auto binding = keyProvInfo();
        if (!binding && !requireKeyProvInfo)
            binding = korvaneCspRef();
        if (!binding || (!cspName.empty() && binding->cspName != cspName))
            return std::nullopt;
        return std::move(binding->containerName);
    }

    /// What a listing of all entries says of it.
    StoreEntry entry() const {
        StoreEntry entry;
        const BufferRange<unsigned char> encoding = encodingOf(context_);
        entry.encoding = {encoding.data(), encoding.size()};
        entry.thumbprint = sha1Of(encoding);
        entry.certificateError = errorOf([&] {
            asn1::Certificate certificate;
            asn1::der::decode(encoding, certificate);
            entry.certificate = std::move(certificate);
        });
        const auto readProperty = [&](auto read) {
            if (auto error = errorOf(read))
                entry.propertyError = std::move(error);
        };
        readProperty([&] { entry.friendlyName = friendlyName(); });
        readProperty([&] { entry.keyProvider = keyProvider(); });
        readProperty([&] {
            if (auto recorded = korvaneCspRef())
                entry.registration = {std::move(recorded->containerName),
                                      std::move(recorded->cspName)};
        });
        return entry;
    }

private:
    std::wstring friendlyName() const {
        Buffer<unsigned char> value;
        return getCertContextProperty(context_, CERT_FRIENDLY_NAME_PROP_ID, value) ? textOf(value)
                                                                                   : L"";
    }

    std::optional<CspBinding> korvaneCspRef() const {
        Buffer<unsigned char> value;
        if (!getCertContextProperty(context_, korvaneCspRefPropertyId, value))
            return std::nullopt;
        return decodeKorvaneCspRef(value);
    }

    std::optional<CspBinding> keyProvInfo() const {
        auto provider = keyProvider();
        if (!provider)
            return std::nullopt;
        return CspBinding{std::move(provider->containerName), std::move(provider->cspName)};
    }

    std::optional<StoreEntry::KeyProvider> keyProvider() const {
        Buffer<unsigned char> value;
        if (!getCertContextProperty(context_, CERT_KEY_PROV_INFO_PROP_ID, value))
            return std::nullopt;
        CRYPT_KEY_PROV_INFO info{};
        // A value too short for the structure is a binding that names nothing.
        if (value.size() >= sizeof info)
            std::memcpy(&info, value.data(), sizeof info);
        return StoreEntry::KeyProvider{textOf(info.pwszContainerName), textOf(info.pwszProvName),
                                       info.dwProvType, info.dwKeySpec};
    }

    const CERT_CONTEXT* context_;
};

CertStoreHelper::CertStoreHelper() : CertStoreHelper(L"MY") {}

CertStoreHelper::CertStoreHelper(const std::wstring& storeName) {
    store = CertOpenSystemStoreW(0, storeName.c_str());
    if (!store)
        throw korv::makeEvent<CertStoreUpdaterError_OpenSystemStore>(sourceFile,
                                                                     {{L"STORE", storeName}});
}

CertStoreHelper::~CertStoreHelper() {
    if (store)
        CertCloseStore(store, 0);
}

CertStoreHelper& CertStoreHelper::operator=(const CertStoreHelper& other) = default;

std::uint32_t CertStoreHelper::getKeySpec(const asn1::Certificate& certificate) const {
    constexpr unsigned digitalSignature = 0;
    constexpr unsigned nonRepudiation = 1;
    constexpr unsigned keyEncipherment = 2;
    constexpr unsigned dataEncipherment = 3;
    constexpr unsigned keyCertSign = 5;
    constexpr unsigned cRLSign = 6;

    std::uint32_t keySpec = 0;
    if (certificate.checkUsage(digitalSignature) || certificate.checkUsage(nonRepudiation) ||
        certificate.checkUsage(keyCertSign) || certificate.checkUsage(cRLSign))
        keySpec = AT_SIGNATURE;
    if (certificate.checkUsage(keyEncipherment) || certificate.checkUsage(dataEncipherment))
        keySpec = AT_KEYEXCHANGE;
    return keySpec;
}

void CertStoreHelper::addCspCertificate(const std::wstring& cspName,
                                        const std::wstring& containerName,
                                        const std::wstring& friendlyName,
                                        const asn1::Certificate& certificate, bool withKeyProvInfo,
                                        bool skipLookup, bool lookupByCsp) {
    if (!skipLookup &&
        (lookupByCsp ? findCspCertificate(cspName, containerName, certificate, withKeyProvInfo)
                     : findCertificate(certificate)))
        return;
    const CERT_CONTEXT* added = addToStore(store, certificate);
    if (!added)
        return;
    const CspBinding binding{containerName, cspName};
    if (withKeyProvInfo)
        setKeyProvInfo(added, binding, getKeySpec(certificate));
    setProperties(added, binding, friendlyName, certificate);
    CertFreeCertificateContext(added);
}

void CertStoreHelper::addCspCertificate(const std::wstring& cspName,
                                        const std::wstring& containerName,
                                        const std::wstring& friendlyName,
                                        const asn1::Certificate& certificate,
                                        bool withKeyProvInfo) {
    addCspCertificate(cspName, containerName, friendlyName, certificate, withKeyProvInfo, true,
                      true);
}

bool CertStoreHelper::rebindCspCertificate(const std::wstring& cspName,
                                           const std::wstring& containerName,
                                           const std::wstring& friendlyName,
                                           const asn1::Certificate& certificate,
                                           bool withKeyProvInfo) {
    const CertContext stored(locate(store, certificate).found);
    if (!stored)
        return false;
    const CspBinding binding{containerName, cspName};
    if (withKeyProvInfo)
        setKeyProvInfo(stored.get(), binding, getKeySpec(certificate));
    else
        writeKeyProvInfo(stored.get(), binding, nullptr);
    setProperties(stored.get(), binding, friendlyName, certificate);
    return true;
}

void CertStoreHelper::addCspCertificates(const std::wstring& cspName, const CertMap& items,
                                         bool withKeyProvInfo, bool skipLookup, bool lookupByCsp) {
    for (const auto& [containerName, item] : items)
        addCspCertificate(cspName, containerName.c_str(), item.label.c_str(), item.certificate,
                          withKeyProvInfo, skipLookup, lookupByCsp);
}

void CertStoreHelper::addCspCertificates(const std::wstring& cspName, const CertMap& items,
                                         bool withKeyProvInfo) {
    addCspCertificates(cspName, items, withKeyProvInfo, true, true);
}

bool CertStoreHelper::findCertificate(const asn1::Certificate& cert) {
    return findCspCertificate({}, {}, cert, false);
}

bool CertStoreHelper::findCspCertificate(const std::wstring& cspName,
                                         const std::wstring& containerName,
                                         const asn1::Certificate& cert, bool requireKeyProvInfo) {
    const Located certificate = locate(store, cert);
    if (!certificate.found)
        return false;
    return cspName.empty() || StoredCertificate(certificate.found)
                                  .isBoundTo(cspName, containerName, requireKeyProvInfo);
}

bool CertStoreHelper::findCspCertificate(const std::wstring& cspName,
                                         const std::wstring& containerName,
                                         const asn1::Certificate& cert) {
    return findCspCertificate(cspName, containerName, cert, false);
}

bool CertStoreHelper::findCspCertificate(const std::wstring& cspName,
                                         const asn1::Certificate& cert) {
    return findCspCertificate(cspName, {}, cert, false);
}

void CertStoreHelper::deleteCertificate(const asn1::Certificate& cert) {
    const Located certificate = locate(store, cert);
    if (!certificate.found || CertDeleteCertificateFromStore(certificate.found))
        return;
    if (GetLastError() != ERROR_CANCELLED)
        throw korv::makeEvent<CertStoreUpdaterError_DeleteCertificateFailed>(sourceFile);
}

void CertStoreHelper::deleteCertificates(const CertMap& certs) {
    for (const auto& [containerName, item] : certs)
        deleteCertificate(item.certificate);
}

void CertStoreHelper::deleteCspCertificates(const std::wstring& cspName, bool requireKeyProvInfo) {
    // Has no owner: a walk that ends early leaves its reference behind.
    const CERT_CONTEXT* current = nullptr;
    while ((current = CertEnumCertificatesInStore(store, current)) != nullptr)
        if (StoredCertificate(current).isBoundTo(cspName, {}, requireKeyProvInfo) &&
            !deleteDuplicateOf(current))
            return;
}

std::unique_ptr<std::vector<std::wstring>> CertStoreHelper::listCSPs() {
    auto names = std::make_unique<std::vector<std::wstring>>();
    for (DWORD index = 0;; ++index) {
        DWORD type = 0;
        DWORD size = 0;
        if (!CryptEnumProvidersW(index, nullptr, 0, &type, nullptr, &size))
            return names;
        // Room for a terminator, should the size leave it out.
        std::vector<wchar_t> name(size / sizeof(wchar_t) + 2);
        if (!CryptEnumProvidersW(index, nullptr, 0, &type, name.data(), &size))
            throw korv::makeEvent<CertStoreUpdaterError_GetCspNameFailed>(sourceFile);
        names->emplace_back(name.data());
    }
}

std::unique_ptr<CertMap> CertStoreHelper::listCertsByCsp(const std::wstring& cspName,
                                                         bool requireKeyProvInfo) {
    auto listed = std::make_unique<CertMap>();
    CertContext current;
    const auto advance = [&] {
        current.reset(CertEnumCertificatesInStore(store, current.release()));
        return current != nullptr;
    };
    while (advance()) {
        const StoredCertificate certificate(current.get());
        if (const auto container = certificate.listedContainer(cspName, requireKeyProvInfo))
            listed->try_emplace(Buffer<wchar_t>(container->data(), container->size()),
                                itemOf(current.get()));
    }
    return listed;
}

std::vector<StoreEntry> CertStoreHelper::listEntries() const {
    std::vector<StoreEntry> entries;
    CertContext current;
    const auto advance = [&] {
        current.reset(CertEnumCertificatesInStore(store, current.release()));
        return current != nullptr;
    };
    while (advance())
        entries.push_back(StoredCertificate(current.get()).entry());
    return entries;
}

bool CertStoreHelper::getCertContextProperty(const CERT_CONTEXT* context, std::uint32_t id,
                                             Buffer<unsigned char>& value) {
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(context, id, nullptr, &size))
        return false;
    const std::size_t kept = std::min<std::size_t>(value.size(), size);
    value.resize(size);
    // The property may become shorter before it is read: what lies beyond it then must say nothing.
    std::memset(value.data() + kept, 0, size - kept);
    if (!CertGetCertificateContextProperty(context, id, value.data(), &size))
        throw korv::makeEvent<CertStoreUpdaterError_GetCertContextPropertyFailed>(
            sourceFile, {{L"PROPERTY", id}});
    return true;
}

} // namespace pkcs11::certstoreupdater
