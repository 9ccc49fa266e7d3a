// The error of a type that nobody knows how to encode.
#pragma once

#include "asn1type.h"
#include "makeevent.h"

namespace asn1 {

/// "CAUSE" = "UnknwonClass" and "CLASS"
/// \param file the caller's source file
inline QuorError_Asn1_Encode unknownClass(const wchar_t* file, const Type& type,
                                          int line = __builtin_LINE()) {
    return korv::makeEvent<QuorError_Asn1_Encode>(
        file, {{L"CAUSE", L"UnknwonClass"}, {L"CLASS", static_cast<unsigned>(type.typeClass)}},
        line);
}

} // namespace asn1
