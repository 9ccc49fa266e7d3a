// The slots of a PKCS #11 module.
#pragma once

#include "cklibrary.h"
#include "cktoken.h"
#include "cktypes.h"

#include <cstddef>
#include <vector>

namespace pkcs11 {

/// A slot of a module, and so the token in it.
class CkSlot : public CkToken {
public:
    using CkToken::CkToken;

    CkSlotId id() const noexcept { return slotId(); }
};

/// The slots that a module lists (PKCS #11 C_GetSlotList), in its order, as they were when the
/// list was made.
class CkSlots {
public:
    /// \param tokenPresent whether slots without a token are left out
    /// \throws Pkcs11Error_CryptokiError with the module's answer; "5" for a number of slots
    ///   that no module has
    CkSlots(const CkLibrary& library, bool tokenPresent);

    bool empty() const noexcept { return slots_.empty(); }
    std::size_t size() const noexcept { return slots_.size(); }
    const CkSlot& operator[](std::size_t index) const noexcept { return slots_[index]; }
    auto begin() const noexcept { return slots_.begin(); }
    auto end() const noexcept { return slots_.end(); }

private:
    std::vector<CkSlot> slots_;
};

} // namespace pkcs11
