// Which contents octets a primitive type allows, and how DER writes them.
#pragma once

#include "element.h"

namespace asn1 {

/// Whether the octets are contents of the type. With Rules::ber also those are taken that
/// `normalLastOctet` has to change for DER.
bool contentsFit(TypeClass typeClass, BufferRange<unsigned char> contents, Rules rules) noexcept;

/// Whether contents that fit BER are also those that DER has.
bool contentsAreNormal(TypeClass typeClass, BufferRange<unsigned char> contents) noexcept;

/// The last contents octet as DER has it. Only the last octet of a BOOLEAN and of a BIT STRING
/// ever differs.
unsigned char normalLastOctet(TypeClass typeClass, BufferRange<unsigned char> contents) noexcept;

} // namespace asn1
