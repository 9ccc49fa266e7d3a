// Decoding and encoding (X.690).
#pragma once

#include "asn1.h"

namespace asn1 {

/// Whether strict decoding accepts a member that is encoded although it has its DEFAULT value.
/// Off unless a program turns it on; the library never does. Holds for all threads.
CERTSTOREUPDATER_API bool encodedDefaultsAccepted() noexcept;
CERTSTOREUPDATER_API void acceptEncodedDefaults(bool accept) noexcept;

namespace der {

/// Decodes `input`, which must be the DER encoding of one value and nothing else. Tags match
/// whatever their constructed bit; what is accepted encodes to the same bytes but for that bit.
/// Extension values and open types are not looked into. Values that nest more than 32 deep, which
/// only types that contain themselves allow, do not match.
///
/// Decoding checks everything in one pass, then keeps one copy of the bytes, in one allocation.
/// \throws QuorError_Asn1_Decode with "CAUSE" = "UndefinedLengthPresentInDerEncoding",
///   "DefaultValuePresentInDEREncoding", "ExplicitTagWithoutConstructorBit" or
///   "ValueDoesNotMatch" and "POSITION"; or with "CAUSE" = "NotAllBufferConsumed",
///   "CONSUMED_BYTES" and "BUFFER_SIZE". `value` is unchanged then.
/// \throws QuorError_Asn1_Encode with "CAUSE" = "UnknwonClass" and "CLASS" for a type that is
///   none of `TypeClass`
CERTSTOREUPDATER_API void decode(BufferRange<unsigned char> input, Asn1& value);

/// Compares the DER encodings of two values.
/// \param contentsOnly leave tag and length of the values themselves out
/// \throws what encoding throws
CERTSTOREUPDATER_API std::int16_t cmp(const Asn1& a, const Asn1& b, bool contentsOnly);

} // namespace der

namespace aux {

/// Decodes the value at the beginning of `input`, which may be BER: long and indefinite lengths,
/// encoded defaults, any BOOLEAN but 0 as TRUE. Strings must be in one piece.
/// \param input      consumed up to the end of the value; unchanged if this throws
/// \param wholeInput whether bytes after the value are an error
/// \throws as `der::decode`
CERTSTOREUPDATER_API void decodeBer(BufferRange<unsigned char>& input, Asn1& value,
                                    bool wholeInput);
/// The same where nobody asks for what follows the value.
inline void decodeBer(const BufferRange<unsigned char>& input, Asn1& value, bool wholeInput) {
    BufferRange<unsigned char> rest = input;
    decodeBer(rest, value, wholeInput);
}

/// The DER encoding of a value; for a decoded certificate the bytes that it keeps, shared.
/// Members that have their DEFAULT value are left out.
/// \param contentsOnly leave tag and length of the value itself out
/// \throws QuorError_Asn1_Encode with "FIELD_NAME" = the innermost member without a value and a
///   QuorError_Asn1_UnsetValue as parent; with "CAUSE" = "UnknwonClass" and "CLASS" for a type
///   that is none of `TypeClass`
CERTSTOREUPDATER_API Buffer<unsigned char> encodeDer(const Asn1& value, bool contentsOnly);

} // namespace aux

} // namespace asn1
