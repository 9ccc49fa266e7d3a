// The errors of everything that talks to a PKCS #11 module.
#pragma once

#include "genericevent.h"
#include "makeevent.h"

namespace pkcs11 {

/// Base of this layer's errors; never thrown itself.
KORV_EVENT_FAMILY(Pkcs11Error, korv::GenericEvent);

/// A Cryptoki function gave another answer than CKR_OK, or an answer that cannot be used.
/// "CRYPTOKY_ERROR_CODE": the answer (CK_RV), decimal.
///
/// A module file that cannot be used at all is reported as CKR_GENERAL_ERROR, "5". That event
/// has a parent, a plain GenericEvent of the name "ModuleNotLoaded" with the parameters
/// "MODULE", the path as it was given, and "ERROR": the system's error (on Windows the decimal
/// number of GetLastError, elsewhere a text) or what the module lacks.
KORV_EVENT_CLASS(Pkcs11Error_CryptokiError, Pkcs11Error);

/// The error for an answer of a module.
/// \param file the caller's source file, relative, with backslashes
inline Pkcs11Error_CryptokiError cryptokiError(const wchar_t* file, unsigned long code,
                                               int line = __builtin_LINE()) {
    return korv::makeEvent<Pkcs11Error_CryptokiError>(file, {{L"CRYPTOKY_ERROR_CODE", code}}, line);
}

/// The same for an answer that `cause` led to.
inline Pkcs11Error_CryptokiError cryptokiError(const wchar_t* file, unsigned long code,
                                               const korv::GenericEvent& cause,
                                               int line = __builtin_LINE()) {
    return korv::makeEvent<Pkcs11Error_CryptokiError>(file, cause, {{L"CRYPTOKY_ERROR_CODE", code}},
                                                      line);
}

} // namespace pkcs11
