// How the values of a type are held.
#pragma once

#include "asn1type.h"

namespace asn1 {

enum class Form : unsigned char {
    contents,     ///< ContentsValue
    encoding,     ///< EncodedValue
    members,      ///< Sequence
    alternatives, ///< Choice
};

/// \throws QuorError_Asn1_Encode with "CAUSE" = "UnknwonClass" and "CLASS"
[[noreturn]] void throwUnknownClass(const Type& type);

/// Throws `throwUnknownClass`'s error for a type that is none of `TypeClass`.
inline Form formOf(const Type& type) {
    switch (type.typeClass) {
    case TypeClass::choice:
        return Form::alternatives;
    case TypeClass::sequence:
        return Form::members;
    case TypeClass::openType:
    case TypeClass::kept:
        return Form::encoding;
    case TypeClass::boolean:
    case TypeClass::integer:
    case TypeClass::bitString:
    case TypeClass::octetString:
    case TypeClass::objectIdentifier:
    case TypeClass::characterString:
    case TypeClass::twoByteString:
    case TypeClass::fourByteString:
    case TypeClass::utcTime:
    case TypeClass::generalizedTime:
    case TypeClass::sequenceOf:
    case TypeClass::setOf:
        return Form::contents;
    }
    throwUnknownClass(type);
}

} // namespace asn1
