// The Cryptoki header, and what every call of a module needs.
#pragma once

#include "ckattributes.h"
#include "cktypes.h"
#include "pkcs11error.h"

#include <p11-kit/pkcs11.h>

#include <type_traits>
#include <vector>

namespace pkcs11 {

static_assert(std::is_same_v<CkUlong, CK_ULONG>);

/// Throws a module's answer unless it is CKR_OK.
/// \param file the caller's source file
inline void check(CK_RV answer, const wchar_t* file, int line = __builtin_LINE()) {
    if (answer != CKR_OK)
        throw cryptokiError(file, answer, line);
}

/// Calls a function of a module.
/// \returns its answer; CKR_FUNCTION_NOT_SUPPORTED if the module lacks it
template <class... Parameters>
CK_RV answerOf(CK_RV (*function)(Parameters...), std::type_identity_t<Parameters>... arguments) {
    return function ? function(arguments...) : CKR_FUNCTION_NOT_SUPPORTED;
}

/// The template as a module takes it. It points at the values of `attributes`.
std::vector<CK_ATTRIBUTE> cryptokiTemplate(const CkAttributes& attributes);

} // namespace pkcs11
