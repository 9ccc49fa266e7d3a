// Filling values from encodings that were checked before.
#pragma once

#include "asn1type.h"

#include <optional>

namespace asn1 {

/// Fills `value` from `encoding`, a part of `bytes` that is DER of the value's type but for its
/// tag. The value shares `bytes`.
void readValue(const Octets& bytes, BufferRange<unsigned char> encoding, Asn1& value);

/// The encoding of a member within the contents of its SEQUENCE, without an explicit tag; none
/// if the member is absent.
std::optional<BufferRange<unsigned char>> findMember(std::span<const Member> members,
                                                     BufferRange<unsigned char> contents,
                                                     std::size_t index) noexcept;

} // namespace asn1
