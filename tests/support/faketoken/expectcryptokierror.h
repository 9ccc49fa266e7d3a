// Expecting an error of the code that talks to a module.
#pragma once

#include "pkcs11error.h"
#include "throwsite.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace faketoken {

/// The error that `action` throws; a failure of the test, and nothing, if it throws none.
template <class Action>
std::optional<pkcs11::Pkcs11Error_CryptokiError> cryptokiErrorOf(Action action) {
    try {
        action();
    } catch (const pkcs11::Pkcs11Error_CryptokiError& error) {
        return error;
    }
    ADD_FAILURE() << "no Pkcs11Error_CryptokiError";
    return std::nullopt;
}

/// The value of a parameter; empty without it.
inline std::wstring paramOf(const korv::GenericEvent& event, const wchar_t* key) {
    const buffer::Buffer<wchar_t>* value = event.param(key);
    return value ? value->c_str() : L"";
}

/// Expects that `action` fails with an answer of a module: its code, in decimal, is the one
/// parameter of the error.
template <class Action>
void expectCryptokiError(const wchar_t* code, Action action) {
    const auto error = cryptokiErrorOf(action);
    if (!error)
        return;
    EXPECT_STREQ(error->what(), "Pkcs11Error_CryptokiError");
    EXPECT_EQ(error->code(), 0u);
    ASSERT_EQ(error->params().size(), 1u);
    EXPECT_STREQ(error->params()[0].key.c_str(), L"CRYPTOKY_ERROR_CODE");
    EXPECT_STREQ(error->params()[0].value.c_str(), code);
    EXPECT_EQ(std::wstring(error->file().c_str()).substr(0, 7), L"pkcs11\\");
    testsupport::expectThrowSite(*error);
}

} // namespace faketoken
