// An entry of a Windows system store, with what it is bound to.
#pragma once

#include "buffer.h"
#include "certificate.h"
#include "genericevent.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace pkcs11::certstoreupdater {

using buffer::Buffer;

/// A certificate in a store as `CertStoreHelper::listEntries` finds it. Owns all that it holds;
/// copies share it.
struct StoreEntry {
    /// What the `KorvaneCspRef` property records of a registration.
    struct Registration {
        std::wstring containerName; ///< of the key container
        std::wstring cspName;       ///< of the CSP or key storage provider
    };

    /// Key provider information (CRYPT_KEY_PROV_INFO of wincrypt.h).
    struct KeyProvider {
        std::wstring containerName; ///< of the key container
        std::wstring cspName;       ///< of the CSP or key storage provider
        std::uint32_t type = 0;     ///< dwProvType: 1 PROV_RSA_FULL, 0 a key storage provider
        std::uint32_t keySpec = 0;  ///< dwKeySpec: 1 AT_KEYEXCHANGE, 2 AT_SIGNATURE
    };

    /// The certificate's bytes, as the store has them.
    Buffer<unsigned char> encoding;
    /// SHA-1 of `encoding` (20 bytes), by which Windows shows certificates; null if Windows
    /// cannot compute it.
    Buffer<unsigned char> thumbprint;
    /// CERT_FRIENDLY_NAME_PROP_ID; empty if there is none.
    std::wstring friendlyName;
    std::optional<Registration> registration; ///< nothing if it is absent or cannot be read
    std::optional<KeyProvider> keyProvider;   ///< nothing if it is absent or cannot be read
    /// Why a property that is there could not be read, the last one of several: a
    /// CertStoreUpdaterError_GetCertContextPropertyFailed, or a
    /// buffer::BufferError_InvalidEncodingUnit for a `KorvaneCspRef` that is not UTF-8. Else null.
    std::shared_ptr<const korv::GenericEvent> propertyError;
    /// What `encoding` means; nothing if it is not DER.
    std::optional<asn1::Certificate> certificate;
    /// Why there is no `certificate`: an asn1::QuorError_Asn1_Decode. Else null.
    std::shared_ptr<const korv::GenericEvent> certificateError;
};

} // namespace pkcs11::certstoreupdater
