// The token in a slot.
#include "cktoken.h"

#include "cryptoki.h"
#include "module.h"

#include <cstddef>
#include <string_view>

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\cktoken.cpp";

template <std::size_t size>
Buffer<char> unpadded(const CK_UTF8CHAR (&field)[size]) {
    const std::string_view text(reinterpret_cast<const char*>(field), size);
    using namespace std::string_view_literals;
    const std::size_t last = text.find_last_not_of(" \0"sv);
    return Buffer<char>(text.data(), last == std::string_view::npos ? 0 : last + 1);
}

} // namespace

CkTokenInfo CkToken::info() const {
    CK_TOKEN_INFO info{};
    check(answerOf(library_.module().functions().C_GetTokenInfo, slotId_, &info), sourceFile);
    return CkTokenInfo{unpadded(info.label), unpadded(info.manufacturerID), unpadded(info.model),
                       unpadded(info.serialNumber), info.flags};
}

} // namespace pkcs11
