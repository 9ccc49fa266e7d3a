// What the functions of a PKCS #11 module may answer when they fail.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string_view>
#include <vector>

namespace torture {

/// The return values that PKCS #11 2.40 lists for a function, without CKR_OK, and one of those from
/// CKR_VENDOR_DEFINED on that it leaves to vendors.
/// \throws std::invalid_argument for a function without a row
std::vector<CK_RV> documentedAnswers(std::string_view function);

} // namespace torture
