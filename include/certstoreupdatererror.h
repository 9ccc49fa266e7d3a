// The library's own errors.
#pragma once

#include "genericevent.h"

namespace pkcs11::certstoreupdater {

/// Base of the library's own errors; never thrown itself.
KORV_EVENT_FAMILY(CertStoreUpdaterError, korv::GenericEvent);

/// A system store could not be opened. "STORE": its name.
KORV_EVENT_CLASS(CertStoreUpdaterError_OpenSystemStore, CertStoreUpdaterError);

/// A certificate's property is there but could not be read. "PROPERTY": its id, decimal.
KORV_EVENT_CLASS(CertStoreUpdaterError_GetCertContextPropertyFailed, CertStoreUpdaterError);

/// The store did not take a certificate. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_AddCertificateToStoreFailed, CertStoreUpdaterError);

/// The key provider information could not be written. "CSP", "CONTAINER".
KORV_EVENT_CLASS(CertStoreUpdaterError_SetKeyProviderInfoFailed, CertStoreUpdaterError);

/// The friendly name could not be written. "CSP", "CONTAINER", "FRIENDLYNAME".
KORV_EVENT_CLASS(CertStoreUpdaterError_SetCertFriendlyNameFailed, CertStoreUpdaterError);

/// The record of container and CSP could not be written. "CSP".
KORV_EVENT_CLASS(CertStoreUpdaterError_SetCertKorvaneCspRefFailed, CertStoreUpdaterError);

/// Windows gave no second reference to a certificate that is to be deleted. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_DuplicateCertificatePointerFailed, CertStoreUpdaterError);

/// The second reference is to another certificate. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_DuplicateCertificateMismatch, CertStoreUpdaterError);

/// The store did not delete a certificate. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_DeleteCertificateFailed, CertStoreUpdaterError);

/// The name of an installed CSP could not be read. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_GetCspNameFailed, CertStoreUpdaterError);

/// Windows does not trust the signature of a file, or the file has none. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_InvalidFileSignature, CertStoreUpdaterError);

/// No slot of the module holds a token. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_TokenNotPresent, CertStoreUpdaterError);

/// The token's user PIN has not been set. No parameters.
KORV_EVENT_CLASS(CertStoreUpdaterError_TokenNotInitialized, CertStoreUpdaterError);

/// A Windows security function failed. "Method": its name without the suffix for wide
/// characters; "error": its error code, decimal. For a file without a DACL, only "error" with
/// a text.
KORV_EVENT_CLASS(CertStoreUpdaterError_InvalidConfiguration, CertStoreUpdaterError);

} // namespace pkcs11::certstoreupdater
