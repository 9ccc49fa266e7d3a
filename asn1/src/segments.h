// Strings in segments, which BER allows (X.690 8.6.4, 8.7.3, 8.23).
#pragma once

#include "element.h"

namespace asn1 {

/// Whether values of the class may be in segments: those of all strings, among which X.690 8.25
/// and 8.26 count the times.
bool mayBeSegmented(TypeClass typeClass) noexcept;

/// Joins the segments of a string, which may be in segments themselves. Each has the tag of a
/// BIT STRING or an OCTET STRING, whichever the string is, or the string's own.
/// \param ownIdentifier universal identifier of the string's type, whatever tag it has here
/// \param string        an element with the constructed bit
/// \param input         where the offsets in errors are counted from
/// \param contents      receives the contents octets that the string has in one piece
/// \throws QuorError_Asn1_Decode with "CAUSE" = "ValueDoesNotMatch" and "POSITION" of what is no
///   segment of the string, or lies more than 32 segments deep
void joinSegments(TypeClass typeClass, unsigned char ownIdentifier, const Element& string,
                  const unsigned char* input, TmpBuffer<unsigned char>& contents);

} // namespace asn1
