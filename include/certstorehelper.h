// Certificates of a token in a Windows system store.
#pragma once

#include "certitem.h"
#include "certstoreupdatererror.h"
#include "export.h"
#include "storeentry.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct _CERT_CONTEXT; // CERT_CONTEXT of wincrypt.h

namespace pkcs11::certstoreupdater {

/// One system store of the current user. Registers certificates in it for a CSP and a key
/// container, finds them, lists them and removes them.
///
/// A registered certificate carries key provider information (CERT_KEY_PROV_INFO_PROP_ID), if
/// asked for, a friendly name (CERT_FRIENDLY_NAME_PROP_ID) and the property `KorvaneCspRef`
/// (id 54086): the names of container and CSP in UTF-8, each followed by a line feed.
///
/// Names of CSPs and containers are compared exactly, letter case included. Nothing is rolled
/// back: what was done before an exception stays done. One thread at a time per object; the
/// static function may run on several threads at once.
///
/// Windows may refuse a certificate that asn1 decodes: `CertCreateCertificateContext` then gives
/// null. Whatever looks for such a certificate in the store (to find it, to remove it, to add it
/// with a lookup) hands that null to `CertFindCertificateInStore`, which may end the process with
/// an access violation. So a caller who cannot be sure of a certificate, as of one from a token,
/// passes its encoding to `CertCreateCertificateContext` first. Adding one without a lookup throws
/// CertStoreUpdaterError_AddCertificateToStoreFailed.
///
/// Apart from what each function says: errors of asn1 for a certificate without a value or one
/// that cannot be read; std::bad_alloc.
class CERTSTOREUPDATER_API CertStoreHelper {
public:
    /// Opens the personal store, "MY".
    /// \throws CertStoreUpdaterError_OpenSystemStore
    CertStoreHelper();
    /// Opens a store of the current user (`CertOpenSystemStoreW`), which creates it if need be.
    /// \throws CertStoreUpdaterError_OpenSystemStore "STORE" = the name
    explicit CertStoreHelper(const std::wstring& storeName);
    /// Closes the store (`CertCloseStore` with flags 0): contexts that are still held keep it
    /// alive.
    ~CertStoreHelper();

    CertStoreHelper(const CertStoreHelper&) = delete;
    /// Copies the handle and nothing else. The handle that this object had is not closed, and
    /// both objects close the one they now share: the caller must see to it that only one of
    /// them is destroyed.
    CertStoreHelper& operator=(const CertStoreHelper& other);

    /// What the key of a certificate is registered for (wincrypt.h): 1 AT_KEYEXCHANGE if its
    /// KeyUsage has keyEncipherment or dataEncipherment, else 2 AT_SIGNATURE if it has
    /// digitalSignature, nonRepudiation, keyCertSign or cRLSign, else 0. A certificate without
    /// KeyUsage may be used for anything, so 1.
    /// \throws asn1::QuorError_Asn1_Decode if the KeyUsage extension is malformed
    std::uint32_t getKeySpec(const asn1::Certificate& certificate) const;

    /// Adds a certificate and binds it to a CSP and container. A certificate that is already in
    /// the store stays as it is, properties included, and one whose addition the user declines
    /// stays out; neither is an error.
    ///
    /// \param friendlyName empty: the subject's first commonName, or the whole subject as text
    ///   if it has none
    /// \param withKeyProvInfo write key provider information (PROV_RSA_FULL, whatever the CSP);
    ///   a lookup by CSP then also asks for it
    /// \param skipLookup do not ask first whether the certificate is registered; false only for a
    ///   certificate that Windows accepts (see above)
    /// \param lookupByCsp ask for one registered for this CSP and container, not just for the
    ///   certificate
    /// \throws CertStoreUpdaterError_AddCertificateToStoreFailed;
    ///   CertStoreUpdaterError_SetKeyProviderInfoFailed "CSP", "CONTAINER";
    ///   CertStoreUpdaterError_SetCertFriendlyNameFailed "CSP", "CONTAINER", "FRIENDLYNAME";
    ///   CertStoreUpdaterError_SetCertKorvaneCspRefFailed "CSP" (also for a text longer than a
    ///   property can hold, 4 GiB); what `findCspCertificate` throws; without a
    ///   `friendlyName` also asn1::QuorError_Asn1_Decode or
    ///   buffer::BufferError_InvalidEncodingUnit for a subject that is no text. A certificate
    ///   that could not be given all its properties stays in the store with those it got, and
    ///   the reference to it is kept.
    void addCspCertificate(const std::wstring& cspName, const std::wstring& containerName,
                           const std::wstring& friendlyName, const asn1::Certificate& certificate,
                           bool withKeyProvInfo, bool skipLookup, bool lookupByCsp);
    /// The same with `skipLookup` and `lookupByCsp` true.
    void addCspCertificate(const std::wstring& cspName, const std::wstring& containerName,
                           const std::wstring& friendlyName, const asn1::Certificate& certificate,
                           bool withKeyProvInfo);

    /// Adds every certificate of a map, in key order: the key names the container, the label is
    /// the friendly name, both up to their first zero unit. The first exception ends it.
    /// \param skipLookup false only if Windows accepts each certificate (see above)
    void addCspCertificates(const std::wstring& cspName, const CertMap& items, bool withKeyProvInfo,
                            bool skipLookup, bool lookupByCsp);
    /// The same with `skipLookup` and `lookupByCsp` true.
    void addCspCertificates(const std::wstring& cspName, const CertMap& items,
                            bool withKeyProvInfo);

    /// Gives a certificate that is in the store the properties that `addCspCertificate` gives to
    /// one that it adds. The entry stays in the store all the time; without `withKeyProvInfo` it
    /// loses its key provider information. If this is interrupted or throws, the entry has some of
    /// its old properties and some new ones, and the same call finishes it.
    /// \param friendlyName as for `addCspCertificate`
    /// \param certificate one that Windows accepts (see above)
    /// \returns whether the certificate is in the store; if not, nothing is done
    /// \throws CertStoreUpdaterError_SetKeyProviderInfoFailed,
    ///   CertStoreUpdaterError_SetCertFriendlyNameFailed,
    ///   CertStoreUpdaterError_SetCertKorvaneCspRefFailed with the parameters that they have
    ///   there; without a `friendlyName` also asn1::QuorError_Asn1_Decode or
    ///   buffer::BufferError_InvalidEncodingUnit for a subject that is no text. No reference is
    ///   kept.
    bool rebindCspCertificate(const std::wstring& cspName, const std::wstring& containerName,
                              const std::wstring& friendlyName,
                              const asn1::Certificate& certificate, bool withKeyProvInfo);

    /// Whether a certificate is in the store. The reference to what is found (here and in
    /// `findCspCertificate`) is kept: it lives until the store is closed.
    /// \param cert one that Windows accepts (see above)
    bool findCertificate(const asn1::Certificate& cert);

    /// Whether a certificate is in the store and bound by its `KorvaneCspRef` property to a CSP
    /// and container, and, if `requireKeyProvInfo`, by its key provider information too.
    /// \param cspName empty: the certificate alone is looked for
    /// \param containerName empty: any container
    /// \param cert one that Windows accepts (see above), here and in the shorter forms
    /// \throws CertStoreUpdaterError_GetCertContextPropertyFailed "PROPERTY";
    ///   buffer::BufferError_InvalidEncodingUnit if the property is not UTF-8
    bool findCspCertificate(const std::wstring& cspName, const std::wstring& containerName,
                            const asn1::Certificate& cert, bool requireKeyProvInfo);
    /// The same without a look at key provider information.
    bool findCspCertificate(const std::wstring& cspName, const std::wstring& containerName,
                            const asn1::Certificate& cert);
    /// The same for any container.
    bool findCspCertificate(const std::wstring& cspName, const asn1::Certificate& cert);

    /// Removes a certificate. It is no error if it is not in the store or if the user declines.
    /// \param cert one that Windows accepts (see above)
    /// \throws CertStoreUpdaterError_DeleteCertificateFailed
    void deleteCertificate(const asn1::Certificate& cert);

    /// Removes every certificate of a map, in key order; the keys are not looked at. The first
    /// exception ends it.
    /// \param certs each one that Windows accepts (see above)
    void deleteCertificates(const CertMap& certs);

    /// Removes every certificate whose `KorvaneCspRef` property names the CSP, whatever the
    /// container, and, if `requireKeyProvInfo`, whose key provider information names it too.
    /// Ends without an error as soon as the user declines one.
    /// \throws CertStoreUpdaterError_DeleteCertificateFailed,
    ///   CertStoreUpdaterError_DuplicateCertificatePointerFailed,
    ///   CertStoreUpdaterError_DuplicateCertificateMismatch; as `findCspCertificate`. The
    ///   reference to the certificate at which it ended is kept.
    void deleteCspCertificates(const std::wstring& cspName, bool requireKeyProvInfo);

    /// The names of all installed CSPs, in the system's order (`CryptEnumProvidersW`).
    /// \throws CertStoreUpdaterError_GetCspNameFailed if a name cannot be read, also because a
    ///   provider was installed or removed meanwhile
    static std::unique_ptr<std::vector<std::wstring>> listCSPs();

    /// The store's certificates that are bound to a CSP, by container: by their key provider
    /// information, or, for those that have none and unless `requireKeyProvInfo`, by their
    /// `KorvaneCspRef` property. Of certificates with one container the first in the store is
    /// listed. Only `certificate` of each item is set.
    /// \param cspName empty: certificates bound to any CSP
    /// \throws CertStoreUpdaterError_GetCertContextPropertyFailed "PROPERTY";
    ///   buffer::BufferError_InvalidEncodingUnit if a property is not UTF-8;
    ///   asn1::QuorError_Asn1_Decode if a certificate is not DER
    std::unique_ptr<CertMap> listCertsByCsp(const std::wstring& cspName, bool requireKeyProvInfo);

    /// Every entry of the store in the store's order, bound or not, several of one container too.
    /// Nothing ends the listing early: of an entry that cannot be read as a whole the rest is
    /// listed, with the reason. One walk; changes nothing and keeps no reference.
    /// \throws std::bad_alloc only
    std::vector<StoreEntry> listEntries() const;

private:
    /// Reads a property of a certificate context. False, and `value` untouched, if its size
    /// cannot be read, because it is absent or for any other reason. `value` keeps the size
    /// that was reported first, even if fewer bytes are there when they are read.
    /// \throws CertStoreUpdaterError_GetCertContextPropertyFailed "PROPERTY" = the id
    static bool getCertContextProperty(const _CERT_CONTEXT* context, std::uint32_t id,
                                       Buffer<unsigned char>& value);

    class StoredCertificate;

    void* store = nullptr; // HCERTSTORE
};

} // namespace pkcs11::certstoreupdater
