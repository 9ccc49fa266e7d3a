// Numbers of PKCS #11 under names of their own, so that this layer's headers need no Cryptoki
// header. They are checked against that header when the layer is compiled.
#pragma once

namespace pkcs11 {

/// CK_ULONG: 4 bytes on Windows.
using CkUlong = unsigned long;
/// CK_SLOT_ID
using CkSlotId = CkUlong;

/// Answers of a module (CK_RV) that this layer tests for or gives itself.
namespace ckr {
inline constexpr CkUlong ok = 0x00;
inline constexpr CkUlong generalError = 0x05;
inline constexpr CkUlong argumentsBad = 0x07;
inline constexpr CkUlong attributeTypeInvalid = 0x12;
inline constexpr CkUlong attributeValueInvalid = 0x13;
inline constexpr CkUlong pinLenRange = 0xA2;
inline constexpr CkUlong templateInconsistent = 0xD1;
inline constexpr CkUlong bufferTooSmall = 0x150;
inline constexpr CkUlong cryptokiNotInitialized = 0x190;
inline constexpr CkUlong cryptokiAlreadyInitialized = 0x191;
} // namespace ckr

/// Attribute types.
namespace cka {
inline constexpr CkUlong objectClass = 0x000; // CKA_CLASS
inline constexpr CkUlong token = 0x001;
inline constexpr CkUlong label = 0x003;
inline constexpr CkUlong value = 0x011;
inline constexpr CkUlong certificateType = 0x080;
inline constexpr CkUlong id = 0x102;
} // namespace cka

/// Object classes.
namespace cko {
inline constexpr CkUlong certificate = 1;
inline constexpr CkUlong privateKey = 3;
} // namespace cko

/// Certificate types.
namespace ckc {
inline constexpr CkUlong x509 = 0;
} // namespace ckc

/// Flags of a session and of a token.
namespace ckf {
inline constexpr CkUlong rwSession = 0x2;
inline constexpr CkUlong serialSession = 0x4;
inline constexpr CkUlong userPinInitialized = 0x8;
} // namespace ckf

/// Who logs in.
namespace cku {
inline constexpr CkUlong user = 1;
} // namespace cku

} // namespace pkcs11
