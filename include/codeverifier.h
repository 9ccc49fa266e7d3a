// Checks that a file is signed by somebody whom Windows trusts.
#pragma once

#include "buffer.h"
#include "export.h"

namespace pkcs11::certstoreupdater {

using buffer::Buffer;

/// Authenticode signatures of programs, libraries, cabinets, installers and whatever else the
/// system can verify.
class CERTSTOREUPDATER_API CodeVerifier {
public:
    /// Returns if Windows trusts the signature of a file (`WinVerifyTrust` with
    /// WINTRUST_ACTION_GENERIC_VERIFY_V2). Never shows a dialog and asks for no revocation check:
    /// what becomes of a revoked signer is the system's policy. Windows may use the network to
    /// fetch what it needs to build the signer's chain, since the request does not confine it to
    /// its cache (WTD_CACHE_ONLY_URL_RETRIEVAL). May run on several threads at once.
    ///
    /// \param path full path of the file, handed to Windows as it is, up to its first zero
    ///   element; not changed. A null buffer counts as an empty path.
    /// \throws CertStoreUpdaterError_InvalidFileSignature without parameters if the file is not
    ///   signed, its signature is wrong, expired or not trusted, or the file cannot be read.
    static void verify(Buffer<wchar_t>& path);
};

} // namespace pkcs11::certstoreupdater
