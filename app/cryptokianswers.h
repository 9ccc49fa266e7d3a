// Answers of Cryptoki functions (PKCS #11 2.40, CK_RV), as far as the program tells them apart.
#pragma once

#include "genericevent.h"

#include <string>

namespace updater {

namespace answer {

inline constexpr unsigned long generalError = 0x05;
inline constexpr unsigned long deviceRemoved = 0x32;
inline constexpr unsigned long pinIncorrect = 0xA0;
inline constexpr unsigned long pinInvalid = 0xA1;
inline constexpr unsigned long pinLengthRange = 0xA2;
inline constexpr unsigned long pinExpired = 0xA3;
inline constexpr unsigned long pinLocked = 0xA4;
inline constexpr unsigned long sessionClosed = 0xB0;
inline constexpr unsigned long sessionHandleInvalid = 0xB3;
inline constexpr unsigned long tokenNotPresent = 0xE0;
inline constexpr unsigned long tokenNotRecognized = 0xE1;
inline constexpr unsigned long userNotLoggedIn = 0x101;
inline constexpr unsigned long userPinNotInitialized = 0x102;

} // namespace answer

/// The answer that a Pkcs11Error_CryptokiError carries; CKR_GENERAL_ERROR for an event that carries
/// none.
unsigned long answerOf(const korv::GenericEvent& event);

/// Its name in the standard, or the number: "answer 0x80000001".
std::wstring nameOfAnswer(unsigned long answer);

} // namespace updater
