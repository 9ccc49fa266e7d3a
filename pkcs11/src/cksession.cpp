// A session with a token.
#include "cksession.h"

#include "cryptoki.h"
#include "module.h"

#include <limits>
#include <utility>

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\cksession.cpp";

} // namespace

CkSession::~CkSession() {
    // No event is made of the answer: making one can throw, and nobody would see it.
    if (handle_ && library_.module().isUsable())
        answerOf(library_.module().functions().C_CloseSession, *handle_);
}

void CkSession::open(CkSlotId slotId, CkUlong flags) {
    if (isOpen())
        throw cryptokiError(sourceFile, ckr::argumentsBad);
    CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
    check(answerOf(library_.module().functions().C_OpenSession, slotId, flags, nullptr, nullptr,
                   &handle),
          sourceFile);
    handle_ = handle;
}

void CkSession::login(CkUlong userType, BufferRange<unsigned char> pin) {
    if (pin.size() > std::numeric_limits<CK_ULONG>::max())
        throw cryptokiError(sourceFile, ckr::pinLenRange);
    // Cryptoki takes a pointer to bytes that it does not change.
    auto* bytes = const_cast<CK_UTF8CHAR*>(pin.data());
    check(answerOf(library_.module().functions().C_Login, handle(), userType, bytes,
                   static_cast<CK_ULONG>(pin.size())),
          sourceFile);
}

void CkSession::close() {
    if (const std::optional<CkUlong> handle = std::exchange(handle_, std::nullopt))
        check(answerOf(library_.module().functions().C_CloseSession, *handle), sourceFile);
}

} // namespace pkcs11
