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

/// "CAUSE" = "UnknwonClass" and "CLASS"
/// \param file the caller's source file
QuorError_Asn1_Encode unknownClass(const wchar_t* file, const Type& type,
                                   int line = __builtin_LINE());

/// \param file the caller's source file
/// \throws QuorError_Asn1_Encode, `unknownClass`, for a type that is none of `TypeClass`
inline Form formOf(const Type& type, const wchar_t* file, int line = __builtin_LINE()) {
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
    throw unknownClass(file, type, line);
}

} // namespace asn1
