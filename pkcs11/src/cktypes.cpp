// Checks this layer's numbers against the Cryptoki header.
#include "cktypes.h"

#include "cryptoki.h"

namespace pkcs11 {

#ifdef _WIN32
static_assert(sizeof(CkUlong) == 4);
#endif

static_assert(ckr::ok == CKR_OK);
static_assert(ckr::generalError == CKR_GENERAL_ERROR);
static_assert(ckr::argumentsBad == CKR_ARGUMENTS_BAD);
static_assert(ckr::attributeTypeInvalid == CKR_ATTRIBUTE_TYPE_INVALID);
static_assert(ckr::attributeValueInvalid == CKR_ATTRIBUTE_VALUE_INVALID);
static_assert(ckr::pinLenRange == CKR_PIN_LEN_RANGE);
static_assert(ckr::templateInconsistent == CKR_TEMPLATE_INCONSISTENT);
static_assert(ckr::bufferTooSmall == CKR_BUFFER_TOO_SMALL);
static_assert(ckr::cryptokiNotInitialized == CKR_CRYPTOKI_NOT_INITIALIZED);
static_assert(ckr::cryptokiAlreadyInitialized == CKR_CRYPTOKI_ALREADY_INITIALIZED);

static_assert(cka::objectClass == CKA_CLASS);
static_assert(cka::token == CKA_TOKEN);
static_assert(cka::label == CKA_LABEL);
static_assert(cka::value == CKA_VALUE);
static_assert(cka::certificateType == CKA_CERTIFICATE_TYPE);
static_assert(cka::id == CKA_ID);

static_assert(cko::certificate == CKO_CERTIFICATE);
static_assert(cko::privateKey == CKO_PRIVATE_KEY);
static_assert(ckc::x509 == CKC_X_509);
static_assert(ckf::rwSession == CKF_RW_SESSION);
static_assert(ckf::serialSession == CKF_SERIAL_SESSION);
static_assert(ckf::userPinInitialized == CKF_USER_PIN_INITIALIZED);
static_assert(cku::user == CKU_USER);

} // namespace pkcs11
