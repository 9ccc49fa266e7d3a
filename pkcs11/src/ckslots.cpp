// The slots of a PKCS #11 module.
#include "ckslots.h"

#include "cryptoki.h"
#include "module.h"

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\ckslots.cpp";

// Beyond this a module's count is taken for an error, not for a wish for memory.
constexpr CK_ULONG maxSlots = 65'536;

// How often a list that grew between the two calls is asked for again.
constexpr int maxAttempts = 8;

std::vector<CK_SLOT_ID> listSlots(const CK_FUNCTION_LIST& functions, CK_BBOOL tokenPresent) {
    for (int attempt = 1;; ++attempt) {
        CK_ULONG count = 0;
        check(answerOf(functions.C_GetSlotList, tokenPresent, nullptr, &count), sourceFile);
        if (count > maxSlots)
            throw cryptokiError(sourceFile, ckr::generalError);
        std::vector<CK_SLOT_ID> ids(count);
        if (ids.empty())
            return ids;
        const CK_RV answer = answerOf(functions.C_GetSlotList, tokenPresent, ids.data(), &count);
        if (answer == ckr::bufferTooSmall && attempt != maxAttempts)
            continue;
        check(answer, sourceFile);
        if (count > ids.size())
            throw cryptokiError(sourceFile, ckr::generalError);
        ids.resize(count);
        return ids;
    }
}

} // namespace

CkSlots::CkSlots(const CkLibrary& library, bool tokenPresent) {
    const std::vector<CK_SLOT_ID> ids =
        listSlots(library.module().functions(), tokenPresent ? CK_TRUE : CK_FALSE);
    slots_.reserve(ids.size());
    for (const CK_SLOT_ID id : ids)
        slots_.emplace_back(library, id);
}

} // namespace pkcs11
