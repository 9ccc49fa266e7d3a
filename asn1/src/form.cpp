// How the values of a type are held.
#include "form.h"

#include "makeevent.h"

namespace asn1 {

QuorError_Asn1_Encode unknownClass(const wchar_t* file, const Type& type, int line) {
    return korv::makeEvent<QuorError_Asn1_Encode>(
        file, {{L"CAUSE", L"UnknwonClass"}, {L"CLASS", static_cast<unsigned>(type.typeClass)}},
        line);
}

} // namespace asn1
