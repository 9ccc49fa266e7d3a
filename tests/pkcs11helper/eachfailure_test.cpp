// A whole reading of a token, once for each call of the module, which fails.
#include "expectcryptokierror.h"
#include "helpertest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace {

using faketoken::certificate;
using faketoken::modulePath;
using faketoken::paramOf;
using faketoken::privateKey;
using helpertest::leaf;
using helpertest::pinOf;
using pkcs11::Pkcs11Error_CryptokiError;
using pkcs11::certstoreupdater::Pkcs11Helper;

class EachFailure : public faketoken::TokenTest {
protected:
    void SetUp() override {
        for (unsigned char i = 0; i != 65; ++i)
            objects().push_back(certificate(leaf(), {i}, "a"));
        objects().push_back(privateKey({1}));
    }

    static void readToken() {
        Pkcs11Helper helper(modulePath());
        helper.login(pinOf("1234"));
        helper.getAllCerts();
    }

    // What readToken throws; nothing if it throws nothing.
    static std::optional<Pkcs11Error_CryptokiError> errorOfReading() {
        try {
            readToken();
        } catch (const Pkcs11Error_CryptokiError& error) {
            return error;
        }
        return std::nullopt;
    }

    void expectNothingLeft() {
        EXPECT_EQ(token->openSessions(), 0u);
        EXPECT_EQ(token->activeSearches(), 0u);
        EXPECT_EQ(token->sessionsLeftAtFinalize, 0u);
        EXPECT_FALSE(token->initialized);
        EXPECT_EQ(token->count("C_Finalize"), initialisations());
    }

    std::size_t initialisations() {
        const std::vector<faketoken::Call> calls = token->callsOf("C_Initialize");
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [](const faketoken::Call& call) { return call.answer == CKR_OK; }));
    }
};

TEST_F(EachFailure, ArrivesWithItsCodeAndLeavesNothingOpen) {
    readToken();
    const std::vector<std::string> sequence = token->sequence();
    expectNothingLeft();
    // Every function that reading a token calls is among those that fail.
    for (const std::string_view function : faketoken::readingFunctionNames)
        EXPECT_GT(token->count(function), 0u) << function;

    for (std::size_t n = 1; n <= sequence.size(); ++n) {
        const std::string& function = sequence[n - 1];
        SCOPED_TRACE("call " + std::to_string(n) + ", " + function);
        // Codes that no function gives by itself.
        const auto code = static_cast<CK_RV>(0x80000000 + n);
        token->forgetCalls();
        token->failAny(n, code);
        const auto error = errorOfReading();
        if (function == "C_CloseSession") {
            EXPECT_FALSE(error) << "a failure to close is swallowed";
        } else {
            ASSERT_TRUE(error);
            EXPECT_EQ(paramOf(*error, L"CRYPTOKY_ERROR_CODE"), std::to_wstring(code));
            EXPECT_EQ(error->params().size(), 1u);
        }
        EXPECT_EQ(token->calls.at(n - 1).answer, code);
        expectNothingLeft();
    }
}

TEST_F(EachFailure, EndsTheReadingAtOnce) {
    token->fail("C_GetAttributeValue", 3, CKR_DEVICE_ERROR);
    ASSERT_TRUE(errorOfReading());
    EXPECT_EQ(token->count("C_GetAttributeValue"), 3u);
    const std::vector<std::string> sequence = token->sequence();
    const std::vector<std::string> end(sequence.end() - 4, sequence.end());
    EXPECT_THAT(end, testing::ElementsAre("C_GetAttributeValue", "C_FindObjectsFinal",
                                          "C_CloseSession", "C_Finalize"));
}

TEST_F(EachFailure, CanBeFollowedByAReadingThatSucceeds) {
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    token->fail("C_FindObjects", 2, CKR_DEVICE_ERROR);
    EXPECT_THROW(helper.getAllCerts(), Pkcs11Error_CryptokiError);
    EXPECT_EQ(helper.getAllCerts()->otherCerts.size(), 64u);
}

TEST_F(EachFailure, OfEndingASearchIsNotAnsweredByEndingItAgain) {
    token->fail("C_FindObjectsFinal", 1, CKR_DEVICE_ERROR);
    ASSERT_TRUE(errorOfReading());
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
}

TEST_F(EachFailure, OfTwoInARowArrivesAsTheFirst) {
    token->fail("C_FindObjects", 1, CKR_DEVICE_ERROR);
    token->fail("C_FindObjectsFinal", 1, CKR_DEVICE_REMOVED);
    token->fail("C_CloseSession", 1, CKR_DEVICE_REMOVED);
    token->fail("C_Finalize", 1, CKR_DEVICE_REMOVED);
    const auto error = errorOfReading();
    ASSERT_TRUE(error);
    EXPECT_EQ(paramOf(*error, L"CRYPTOKY_ERROR_CODE"), L"48");
}

} // namespace
