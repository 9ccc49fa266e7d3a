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

/// Decodes the value at the beginning of `input`, which may be BER. Unlike `der::decode` this takes
/// - lengths in a longer form than needed, and indefinite ones;
/// - members that are encoded although they have their DEFAULT value;
/// - any BOOLEAN but 0 as TRUE;
/// - unused bits of a BIT STRING that are not 0; they are cleared;
/// - strings and times in segments, which are joined (X.690 8.6.4, 8.7.3, 8.23). A segment has the
///   tag of a BIT STRING or an OCTET STRING, as X.690 asks, or the string's own, as other decoders
///   take it. Segments may be in segments, 32 deep; only the last one of a BIT STRING may have
///   unused bits.
///
/// The contents of everything else are as in DER: no redundant octets in an INTEGER or an OBJECT
/// IDENTIFIER, times in their one form. Tags match whatever their constructed bit, but a string
/// with that bit is in segments. The value holds the DER of what was decoded; only the contents of
/// an open type stay as they came.
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
