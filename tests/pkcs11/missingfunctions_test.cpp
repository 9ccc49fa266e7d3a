// Modules whose function list has null pointers where a function is not supported.
#include "ckobjectsfinder.h"
#include "cksession.h"
#include "ckslots.h"
#include "expectcryptokierror.h"
#include "librarytest.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

using faketoken::expectCryptokiError;
using pkcs11::CkAttributes;
using pkcs11::CkObjectsFinder;
using pkcs11::CkSession;
using pkcs11::CkSlots;
using pkcs11test::ScopedLibrary;

constexpr CK_FLAGS serial = CKF_SERIAL_SESSION;
constexpr wchar_t notSupported[] = L"84";

/// A module that lacks one function is loaded and used up to that function, and unloaded.
class MissingFunction : public faketoken::TokenTest {
protected:
    void loadWithout(const char* function) {
        token->missingFunction = function;
        library = std::make_unique<ScopedLibrary>();
    }
    void openSession() {
        session = std::make_unique<CkSession>(*library);
        session->open(1, serial);
    }
    void loadAndOpenWithout(const char* function) {
        loadWithout(function);
        openSession();
    }
    void TearDown() override {
        session.reset();
        library.reset();
        EXPECT_EQ(token->count("C_Finalize"), 1u);
        TokenTest::TearDown();
    }

    std::unique_ptr<ScopedLibrary> library;
    std::unique_ptr<CkSession> session;
};

TEST_F(MissingFunction, DoesNotMatterUntilItIsCalled) {
    loadAndOpenWithout("C_GetTokenInfo");
    EXPECT_TRUE(session->isOpen());
    EXPECT_EQ(CkSlots(*library, true).size(), 1u);
}

TEST_F(MissingFunction, CannotListSlots) {
    loadWithout("C_GetSlotList");
    expectCryptokiError(notSupported, [&] { CkSlots(*library, true); });
}

TEST_F(MissingFunction, CannotAskATokenAboutItself) {
    loadWithout("C_GetTokenInfo");
    const CkSlots slots(*library, true);
    expectCryptokiError(notSupported, [&] { slots[0].info(); });
}

TEST_F(MissingFunction, CannotOpenASession) {
    loadWithout("C_OpenSession");
    CkSession unopened(*library);
    expectCryptokiError(notSupported, [&] { unopened.open(1, serial); });
    EXPECT_FALSE(unopened.isOpen());
}

TEST_F(MissingFunction, CannotLogIn) {
    loadAndOpenWithout("C_Login");
    constexpr unsigned char pin[] = {'1', '2', '3', '4'};
    expectCryptokiError(notSupported, [&] { session->login(CKU_USER, {pin, sizeof pin}); });
    EXPECT_TRUE(session->isOpen());
}

TEST_F(MissingFunction, CannotBeginASearch) {
    loadAndOpenWithout("C_FindObjectsInit");
    CkObjectsFinder finder(*session);
    expectCryptokiError(notSupported, [&] { finder.init(CkAttributes()); });
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 0u);
}

TEST_F(MissingFunction, CannotGoOnWithASearchThatIsEndedNevertheless) {
    loadAndOpenWithout("C_FindObjects");
    {
        CkObjectsFinder finder(*session);
        finder.init(CkAttributes());
        expectCryptokiError(notSupported, [&] { finder.begin(); });
    }
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
}

TEST_F(MissingFunction, CannotReadAttributes) {
    objects() = {faketoken::certificate({1}, {1}, "a")};
    loadAndOpenWithout("C_GetAttributeValue");
    CkObjectsFinder finder(*session);
    finder.init(CkAttributes());
    CkAttributes wanted;
    wanted.add(pkcs11::cka::id);
    expectCryptokiError(notSupported, [&] { (*finder.begin()).get(wanted); });
}

/// What cannot be closed is open until the module is finalised.
class MissingEnd : public MissingFunction {
protected:
    void TearDown() override {
        token->sessions.clear();
        MissingFunction::TearDown();
    }
};

TEST_F(MissingEnd, OfSessionsIsReportedByCloseAndTheSessionCountsAsClosed) {
    loadAndOpenWithout("C_CloseSession");
    expectCryptokiError(notSupported, [&] { session->close(); });
    EXPECT_FALSE(session->isOpen());
}

TEST_F(MissingEnd, OfSessionsIsNoErrorOfTheirDestruction) {
    loadAndOpenWithout("C_CloseSession");
    EXPECT_NO_THROW(session.reset());
}

TEST_F(MissingEnd, OfSearchesIsReportedByFinal) {
    loadAndOpenWithout("C_FindObjectsFinal");
    CkObjectsFinder finder(*session);
    finder.init(CkAttributes());
    expectCryptokiError(notSupported, [&] { finder.final(); });
}

TEST_F(MissingEnd, OfSearchesIsNoErrorOfTheirDestruction) {
    loadAndOpenWithout("C_FindObjectsFinal");
    const auto search = [&] {
        CkObjectsFinder finder(*session);
        finder.init(CkAttributes());
        throw std::runtime_error("the error to report");
    };
    EXPECT_THROW(search(), std::runtime_error);
}

} // namespace
