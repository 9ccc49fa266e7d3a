// The error of reading what is not set.
#pragma once

#include "asn1type.h"
#include "makeevent.h"

namespace asn1 {

/// ASCII text as an event parameter.
inline Buffer<wchar_t> wideText(std::string_view ascii) {
    Buffer<wchar_t> text(ascii.size());
    for (std::size_t i = 0; i != ascii.size(); ++i)
        text.data()[i] = static_cast<wchar_t>(ascii[i]);
    return text;
}

/// \param file the caller's source file
inline QuorError_Asn1_UnsetValue unsetValue(const wchar_t* file, const Type& type,
                                            int line = __builtin_LINE()) {
    return korv::makeEvent<QuorError_Asn1_UnsetValue>(file, {{L"TYPE", wideText(type.name)}}, line);
}

/// \param file the caller's source file
inline QuorError_Asn1_SettingValue settingValue(const wchar_t* file, const Type& type,
                                                int line = __builtin_LINE()) {
    return korv::makeEvent<QuorError_Asn1_SettingValue>(file, {{L"TYPE", wideText(type.name)}},
                                                        line);
}

} // namespace asn1
