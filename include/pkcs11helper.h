// The token side of an update: reads the certificates of a PKCS #11 token.
#pragma once

#include "certlistpackage.h"
#include "cklibrary.h"
#include "export.h"

#include <memory>
#include <string>
#include <vector>

namespace pkcs11 {

class CkSession;
class CkSlots;

namespace certstoreupdater {

class KeyIds;

/// A PKCS #11 module and a session with the token in its first slot that holds one. Construct,
/// `login`, read as often as wanted, destroy. To be used by one thread at a time.
///
/// If other code of the process finalises the module, every use of this object fails with "400"
/// from then on. A new object initialises the module again, which does not bring the old ones back.
///
/// Every answer of the module that is not CKR_OK arrives as Pkcs11Error_CryptokiError with
/// "CRYPTOKY_ERROR_CODE" = the answer, decimal.
class CERTSTOREUPDATER_API Pkcs11Helper {
public:
    /// Loads the module and lists its slots that hold a token.
    /// \param modulePath in the active code page. A name without a directory is looked for in the
    ///   program's directory, then in the system's, nowhere else.
    /// \throws Pkcs11Error_CryptokiError; its parent, if it has one, says why the module file
    ///   cannot be used
    /// \throws CertStoreUpdaterError_TokenNotPresent without parameters. Nothing stays loaded if
    ///   this constructor throws.
    explicit Pkcs11Helper(const std::string& modulePath);

    /// Closes the session, whatever the module answers, and unloads the module.
    ///
    /// An error of unloading (the answer of C_Finalize) is thrown, unless another exception is in
    /// flight. So make this an automatic object: smart pointers and containers end the program
    /// when a destructor throws. Everything has been released by then.
    ~Pkcs11Helper() noexcept(false);

    Pkcs11Helper(const Pkcs11Helper&) = delete;
    Pkcs11Helper& operator=(const Pkcs11Helper&) = delete;

    /// Opens a read/write session with the first token and logs the user in. A session that was
    /// there before is closed once the new one is open. If the PIN is refused, the new session
    /// stays, without a login; a later `login` may try again.
    /// \param pin handed to the module where it lies: no copy of it is made
    /// \throws CertStoreUpdaterError_TokenNotInitialized without parameters if the token's user
    ///   PIN was never set; nothing has changed then
    /// \throws Pkcs11Error_CryptokiError, for example "160" for a wrong PIN
    void login(const Buffer<unsigned char>& pin);

    /// All X.509 certificates of the token, sorted. Call `login` before. The caller owns the
    /// result. Nothing is cached: each call reads the token.
    /// \throws Pkcs11Error_CryptokiError; "19" for an attribute without a usable value
    /// \throws asn1::QuorError_Asn1_Decode and others of its family for a certificate that is not
    ///   valid DER; none is skipped
    /// \throws buffer::BufferError_InvalidEncodingUnit for a label that is not UTF-8
    std::unique_ptr<CertListPackage> getAllCerts() const;

    /// The certificates of the token that have a private key there, self-signed ones and those of
    /// authorities among them, by container name: "CKAIDHEX:" and CKA_ID in upper-case
    /// hexadecimal. Otherwise as `getAllCerts`.
    std::unique_ptr<CertMap> getCertsWithPrivateKey() const;

    /// The same as `otherCerts` of `getAllCerts`.
    std::unique_ptr<CertMap> getOtherCerts() const;

private:
    std::vector<CertItem> readTokenCertificates() const;
    KeyIds readPrivateKeyIds() const;

    static Buffer<wchar_t> containerNameOf(const Buffer<unsigned char>& id);
    static bool isCaCertificate(const asn1::Certificate& certificate);
    static CertMap CertListPackage::*classOf(const CertItem& item, const KeyIds& privateKeyIds);

    CkLibrary library;
    std::unique_ptr<CkSlots> slots;     ///< never empty
    std::unique_ptr<CkSession> session; ///< null before `login`
};

} // namespace certstoreupdater
} // namespace pkcs11
