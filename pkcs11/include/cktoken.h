// The token in a slot.
#pragma once

#include "buffer.h"
#include "cklibrary.h"
#include "cktypes.h"

#include <utility>

namespace pkcs11 {

using buffer::Buffer;

/// What a token says about itself (PKCS #11 CK_TOKEN_INFO). The texts are the token's bytes
/// without the blanks and zeros behind them: UTF-8, but unformatted tokens hold anything.
struct CkTokenInfo {
    Buffer<char> label;
    Buffer<char> manufacturerId;
    Buffer<char> model;
    Buffer<char> serialNumber;
    CkUlong flags; ///< CK_FLAGS of the token
};

/// The token in a slot of a module, whichever that is when it is asked.
class CkToken {
public:
    CkToken(CkLibrary library, CkSlotId slotId) noexcept
        : library_(std::move(library)), slotId_(slotId) {}

    /// Asks the module anew each time (PKCS #11 C_GetTokenInfo).
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    CkTokenInfo info() const;

    const CkLibrary& ckLibrary() const noexcept { return library_; }
    CkSlotId slotId() const noexcept { return slotId_; }

private:
    CkLibrary library_;
    CkSlotId slotId_;
};

} // namespace pkcs11
