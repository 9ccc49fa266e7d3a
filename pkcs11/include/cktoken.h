// The token in a slot.
#pragma once

#include "buffer.h"
#include "ckslots.h"

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

class CkToken {
public:
    CkToken(const CkSlot& slot) : slot_(slot) {}

    /// Asks the module anew each time (PKCS #11 C_GetTokenInfo).
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    CkTokenInfo info() const;

private:
    CkSlot slot_;
};

} // namespace pkcs11
