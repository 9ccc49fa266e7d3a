// A session with a token.
#pragma once

#include "buffer.h"
#include "cklibrary.h"
#include "cktypes.h"

#include <optional>

namespace pkcs11 {

using buffer::BufferRange;

/// Owns one session of a module: closes it when destroyed, whatever the module answers then.
class CkSession {
public:
    /// A session that is not open yet.
    explicit CkSession(const CkLibrary& library) noexcept : library_(library) {}
    ~CkSession();
    CkSession(const CkSession&) = delete;
    CkSession& operator=(const CkSession&) = delete;

    /// PKCS #11 C_OpenSession, without a callback.
    /// \param flags CKF_SERIAL_SESSION and, for writing, CKF_RW_SESSION
    /// \throws Pkcs11Error_CryptokiError with the module's answer; "7" if it is open already
    void open(CkSlotId slotId, CkUlong flags);

    /// PKCS #11 C_Login.
    /// \param pin handed to the module where it lies: no copy is made. Null asks a module with a
    ///   protected authentication path to use it.
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    void login(CkUlong userType, BufferRange<unsigned char> pin);

    /// PKCS #11 C_CloseSession; nothing if the session is not open. The session counts as closed
    /// even if the module failed to close it.
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    void close();

    bool isOpen() const noexcept { return handle_.has_value(); }
    const CkLibrary& ckLibrary() const noexcept { return library_; }
    /// CK_SESSION_HANDLE; CK_INVALID_HANDLE, 0, while the session is not open.
    CkUlong handle() const noexcept { return handle_.value_or(0); }

private:
    CkLibrary library_;
    std::optional<CkUlong> handle_;
};

} // namespace pkcs11
