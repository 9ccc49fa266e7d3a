// What the tests of Pkcs11Helper share.
#pragma once

#include "buffer.h"
#include "certbuilder.h"
#include "pkcs11helper.h"
#include "tokentest.h"

#include <string>
#include <string_view>
#include <vector>

namespace helpertest {

using faketoken::Bytes;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::Pkcs11Helper;

inline buffer::Buffer<unsigned char> pinOf(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

inline std::wstring textOf(const buffer::Buffer<wchar_t>& buffer) {
    return {buffer.begin(), buffer.end()};
}

/// The container names of a map, in its order.
inline std::vector<std::wstring> namesIn(const CertMap& certs) {
    std::vector<std::wstring> names;
    for (const auto& [name, item] : certs)
        names.push_back(textOf(name));
    return names;
}

/// A certificate that somebody else issued, without extensions.
inline Bytes leaf(std::string_view subject = "Somebody") {
    return testsupport::CertBuilder().names(subject, "Issuer").build();
}

} // namespace helpertest
