// How the values of a type are held.
#include "form.h"

#include "makeevent.h"

namespace asn1 {

namespace {
constexpr wchar_t sourceFile[] = L"asn1\\src\\form.cpp";
}

void throwUnknownClass(const Type& type) {
    throw korv::makeEvent<QuorError_Asn1_Encode>(
        sourceFile,
        {{L"CAUSE", L"UnknwonClass"}, {L"CLASS", static_cast<unsigned>(type.typeClass)}});
}

} // namespace asn1
