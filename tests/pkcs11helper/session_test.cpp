// The life of a Pkcs11Helper: module, slot, session, login.
#include "certstoreupdatererror.h"
#include "expectcryptokierror.h"
#include "helpertest.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace {

using faketoken::Bytes;
using faketoken::Call;
using faketoken::cryptokiErrorOf;
using faketoken::expectCryptokiError;
using faketoken::modulePath;
using faketoken::paramOf;
using faketoken::Slot;
using helpertest::pinOf;
using pkcs11::certstoreupdater::CertStoreUpdaterError_TokenNotInitialized;
using pkcs11::certstoreupdater::CertStoreUpdaterError_TokenNotPresent;
using pkcs11::certstoreupdater::Pkcs11Helper;
using testing::ElementsAre;

static_assert(!std::is_copy_constructible_v<Pkcs11Helper>);
static_assert(!std::is_copy_assignable_v<Pkcs11Helper>);

template <class Event, class Action>
void expectEvent(const char* name, Action action) {
    try {
        action();
        ADD_FAILURE() << "no " << name;
    } catch (const Event& event) {
        EXPECT_STREQ(event.what(), name);
        EXPECT_STREQ(event.file().c_str(), L"src\\pkcs11helper.cpp");
        testsupport::expectThrowSite(event);
        EXPECT_EQ(event.code(), 0u);
        EXPECT_TRUE(event.params().empty());
        EXPECT_EQ(event.parent(), nullptr);
    }
}

template <class Action>
void expectTokenNotPresent(Action action) {
    expectEvent<CertStoreUpdaterError_TokenNotPresent>("CertStoreUpdaterError_TokenNotPresent",
                                                       action);
}

template <class Action>
void expectTokenNotInitialized(Action action) {
    expectEvent<CertStoreUpdaterError_TokenNotInitialized>(
        "CertStoreUpdaterError_TokenNotInitialized", action);
}

class Pkcs11HelperConstructor : public faketoken::TokenTest {};

TEST_F(Pkcs11HelperConstructor, LoadsTheModuleAndListsTheSlotsThatHoldAToken) {
    const Pkcs11Helper helper(modulePath());
    EXPECT_THAT(token->sequence(),
                ElementsAre("C_GetFunctionList", "C_Initialize", "C_GetSlotList", "C_GetSlotList"));
    for (const Call& call : token->callsOf("C_GetSlotList"))
        EXPECT_TRUE(call.tokenPresent);
}

TEST_F(Pkcs11HelperConstructor, ThrowsTokenNotPresentAndUnloadsTheModuleWithoutAToken) {
    token->slots[0].tokenPresent = false;
    expectTokenNotPresent([] { Pkcs11Helper helper(modulePath()); });
    EXPECT_EQ(token->count("C_Initialize"), 1u);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperConstructor, ThrowsTokenNotPresentWithoutASlot) {
    token->slots.clear();
    expectTokenNotPresent([] { Pkcs11Helper helper(modulePath()); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperConstructor, KeepsItsErrorWhenUnloadingFailsToo) {
    token->slots.clear();
    token->fail("C_Finalize", 1, CKR_DEVICE_ERROR);
    expectTokenNotPresent([] { Pkcs11Helper helper(modulePath()); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperConstructor, PassesOnThatSlotsCannotBeListedAndUnloadsTheModule) {
    token->fail("C_GetSlotList", 1, CKR_FUNCTION_FAILED);
    expectCryptokiError(L"6", [] { Pkcs11Helper helper(modulePath()); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperConstructor, UnloadsAModuleThatCannotListSlots) {
    token->missingFunction = "C_GetSlotList";
    expectCryptokiError(L"84", [] { Pkcs11Helper helper(modulePath()); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperConstructor, PassesOnThatTheModuleCannotBeInitialised) {
    token->fail("C_Initialize", 1, CKR_NEED_TO_CREATE_THREADS);
    expectCryptokiError(L"9", [] { Pkcs11Helper helper(modulePath()); });
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList", "C_Initialize"));
}

TEST_F(Pkcs11HelperConstructor, SharesAModuleThatTheProcessUsesAlready) {
    CK_FUNCTION_LIST& functions = token.functions();
    ASSERT_EQ(functions.C_Initialize(nullptr), CKR_OK);
    {
        Pkcs11Helper helper(modulePath());
        helper.login(pinOf("1234"));
    }
    EXPECT_EQ(token->count("C_Finalize"), 0u);
    EXPECT_EQ(token->openSessions(), 0u);
    functions.C_Finalize(nullptr);
}

TEST_F(Pkcs11HelperConstructor, SharesTheModuleWithAnotherHelper) {
    {
        Pkcs11Helper first(modulePath());
        const Pkcs11Helper second(modulePath());
        first.login(pinOf("1234"));
    }
    EXPECT_EQ(token->count("C_Initialize"), 1u);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

/// Helpers of a module that other code of the process finalises meanwhile.
class Pkcs11HelperOfAFinalizedModule : public faketoken::TokenTest {
protected:
    void finalizeAsOthersDo() {
        ASSERT_EQ(token.functions().C_Finalize(nullptr), CKR_OK);
        EXPECT_EQ(std::exchange(token->sessionsLeftAtFinalize, 0), 1u);
    }
};

TEST_F(Pkcs11HelperOfAFinalizedModule, WorksAlthoughAnEarlierOneIsStillThere) {
    Pkcs11Helper first(modulePath());
    first.login(pinOf("1234"));
    finalizeAsOthersDo();
    Pkcs11Helper second(modulePath());
    second.login(pinOf("1234"));
    EXPECT_TRUE(second.getOtherCerts()->empty());
    expectCryptokiError(L"400", [&] { first.getOtherCerts(); });
    expectCryptokiError(L"400", [&] { first.login(pinOf("1234")); });
}

TEST_F(Pkcs11HelperOfAFinalizedModule, KeepsItsSessionWhenAnEarlierOneIsDestroyed) {
    auto first = std::make_unique<Pkcs11Helper>(modulePath());
    first->login(pinOf("1234"));
    const CK_SESSION_HANDLE lost = token->sessions.begin()->first;
    finalizeAsOthersDo();
    Pkcs11Helper second(modulePath());
    second.login(pinOf("1234"));
    ASSERT_EQ(token->sessions.begin()->first, lost) << "the module gives numbers again";
    first.reset();
    EXPECT_EQ(token->count("C_CloseSession"), 0u);
    EXPECT_TRUE(second.getOtherCerts()->empty());
}

void expectUnusable(const std::string& path) {
    const auto error = cryptokiErrorOf([&] { Pkcs11Helper helper(path); });
    ASSERT_TRUE(error);
    EXPECT_EQ(paramOf(*error, L"CRYPTOKY_ERROR_CODE"), L"5");
    EXPECT_EQ(error->params().size(), 1u);
    ASSERT_TRUE(error->parent());
    EXPECT_STREQ(error->parent()->what(), "ModuleNotLoaded");
    EXPECT_EQ(paramOf(*error->parent(), L"MODULE"), std::wstring(path.begin(), path.end()));
    EXPECT_FALSE(paramOf(*error->parent(), L"ERROR").empty());
    EXPECT_FALSE(faketoken::isLoaded(path));
}

TEST(Pkcs11HelperOfABadModule, RefusesAFileThatIsNotThere) {
    expectUnusable(modulePath("nosuchmodule"));
}

TEST(Pkcs11HelperOfABadModule, RefusesAFileThatIsNoLibrary) {
    const std::string path = modulePath("notalibrary");
    std::ofstream(path) << "This is no library.\n";
    expectUnusable(path);
    std::remove(path.c_str());
}

TEST(Pkcs11HelperOfABadModule, RefusesALibraryThatIsNoModule) {
    expectUnusable(modulePath("nofunctionlist"));
}

class Pkcs11HelperLogin : public faketoken::TokenTest {
protected:
    // The names of the functions that `action` has called.
    template <class Action>
    std::vector<std::string> callsDuring(Action action) {
        token->forgetCalls();
        action();
        return token->sequence();
    }
};

TEST_F(Pkcs11HelperLogin, OpensAReadWriteSessionAndLogsTheUserIn) {
    Pkcs11Helper helper(modulePath());
    EXPECT_THAT(callsDuring([&] { helper.login(pinOf("1234")); }),
                ElementsAre("C_GetTokenInfo", "C_OpenSession", "C_Login"));
    EXPECT_EQ(token->calls[0].slot, 1u);
    EXPECT_EQ(token->calls[1].slot, 1u);
    EXPECT_EQ(token->calls[1].flags, 6u);
    EXPECT_EQ(token->calls[2].userType, 1u);
    EXPECT_EQ(token->calls[2].session, token->sessions.begin()->first);
    EXPECT_TRUE(token->sessions.begin()->second.loggedIn);
}

TEST_F(Pkcs11HelperLogin, WorksOnTheFirstSlotThatTheModuleLists) {
    Slot empty;
    empty.id = 3;
    empty.tokenPresent = false;
    Slot first;
    first.id = 17;
    Slot second;
    second.id = 2;
    token->slots = {empty, first, second};
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    EXPECT_EQ(token->callsOf("C_GetTokenInfo").at(0).slot, 17u);
    EXPECT_EQ(token->callsOf("C_OpenSession").at(0).slot, 17u);
}

TEST_F(Pkcs11HelperLogin, ThrowsTokenNotInitializedForATokenWhoseUserPinWasNeverSet) {
    token->slots[0].flags = 0x400;
    Pkcs11Helper helper(modulePath());
    const auto calls =
        callsDuring([&] { expectTokenNotInitialized([&] { helper.login(pinOf("1234")); }); });
    EXPECT_THAT(calls, ElementsAre("C_GetTokenInfo"));
}

class Pkcs11HelperLoginWithFlags : public Pkcs11HelperLogin,
                                   public testing::WithParamInterface<CK_FLAGS> {};

TEST_P(Pkcs11HelperLoginWithFlags, LooksAtTheUserPinFlagAlone) {
    token->slots[0].flags = GetParam();
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    EXPECT_EQ(token->count("C_Login"), 1u);
}

INSTANTIATE_TEST_SUITE_P(ThatHaveIt, Pkcs11HelperLoginWithFlags,
                         testing::Values(0x8, 0x42D,
                                         0x8 | CKF_USER_PIN_LOCKED | CKF_USER_PIN_FINAL_TRY |
                                             CKF_USER_PIN_TO_BE_CHANGED,
                                         0xFFFFFFFF));

TEST_F(Pkcs11HelperLogin, ChangesNothingWhenTheTokenIsNotInitialized) {
    objects() = {faketoken::certificate(helpertest::leaf(), {1}, "a")};
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    token->slots[0].flags = 0;
    expectTokenNotInitialized([&] { helper.login(pinOf("1234")); });
    EXPECT_EQ(token->count("C_CloseSession"), 0u);
    EXPECT_EQ(helper.getOtherCerts()->size(), 1u);
}

TEST_F(Pkcs11HelperLogin, PassesOnThatTheTokenGivesNoInformation) {
    Pkcs11Helper helper(modulePath());
    token->fail("C_GetTokenInfo", 1, CKR_TOKEN_NOT_PRESENT);
    expectCryptokiError(L"224", [&] { helper.login(pinOf("1234")); });
    EXPECT_EQ(token->count("C_OpenSession"), 0u);
}

TEST(Pkcs11HelperOfAModuleWithoutReading, LogsInAndAnswersThatItCannotRead) {
    faketoken::LoadedToken token;
    token->missingFunction = "C_GetAttributeValue";
    token->slots[0].objects = {faketoken::privateKey({1})};
    {
        Pkcs11Helper helper(modulePath());
        helper.login(pinOf("1234"));
        expectCryptokiError(L"84", [&] { helper.getAllCerts(); });
    }
    EXPECT_EQ(token->openSessions(), 0u);
    EXPECT_EQ(token->activeSearches(), 0u);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperLogin, PassesOnThatNoSessionCanBeOpened) {
    Pkcs11Helper helper(modulePath());
    token->fail("C_OpenSession", 1, CKR_SESSION_COUNT);
    expectCryptokiError(L"177", [&] { helper.login(pinOf("1234")); });
    EXPECT_EQ(token->count("C_Login"), 0u);
}

TEST_F(Pkcs11HelperLogin, KeepsTheOldSessionWhenNoNewOneCanBeOpened) {
    objects() = {faketoken::certificate(helpertest::leaf(), {1}, "a")};
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    token->fail("C_OpenSession", 1, CKR_SESSION_COUNT);
    expectCryptokiError(L"177", [&] { helper.login(pinOf("1234")); });
    EXPECT_EQ(token->count("C_CloseSession"), 0u);
    EXPECT_EQ(helper.getOtherCerts()->size(), 1u);
}

TEST_F(Pkcs11HelperLogin, OpensTheNewSessionBeforeItClosesTheOldOne) {
    token->slots[0].loginPerSession = true;
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    const CK_SESSION_HANDLE old = token->sessions.begin()->first;
    EXPECT_THAT(callsDuring([&] { helper.login(pinOf("1234")); }),
                ElementsAre("C_GetTokenInfo", "C_OpenSession", "C_CloseSession", "C_Login"));
    EXPECT_EQ(token->calls[2].session, old);
    EXPECT_EQ(token->openSessions(), 1u);
    EXPECT_EQ(token->calls[3].session, token->sessions.begin()->first);
}

TEST_F(Pkcs11HelperLogin, SwallowsAFailureToCloseTheOldSession) {
    token->slots[0].loginPerSession = true;
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    token->fail("C_CloseSession", 1, CKR_DEVICE_ERROR);
    helper.login(pinOf("1234"));
    EXPECT_EQ(token->count("C_CloseSession"), 1u);
    EXPECT_EQ(token->callsOf("C_Login").at(1).answer, CK_RV{CKR_OK});
}

// The login of a token lasts as long as a session of it is open, and the new one is opened first.
TEST_F(Pkcs11HelperLogin, PassesOnThatTheUserIsLoggedInAlready) {
    Pkcs11Helper helper(modulePath());
    helper.login(pinOf("1234"));
    expectCryptokiError(L"256", [&] { helper.login(pinOf("1234")); });
    EXPECT_EQ(token->openSessions(), 1u);
}

TEST_F(Pkcs11HelperLogin, KeepsTheNewSessionWithoutALoginWhenThePinIsWrong) {
    objects() = {faketoken::certificate(helpertest::leaf(), {1}, "a"), faketoken::privateKey({1})};
    Pkcs11Helper helper(modulePath());
    expectCryptokiError(L"160", [&] { helper.login(pinOf("0000")); });
    EXPECT_EQ(token->count("C_Login"), 1u);
    ASSERT_EQ(token->openSessions(), 1u);
    EXPECT_FALSE(token->sessions.begin()->second.loggedIn);
    // What everybody may see can be read.
    EXPECT_EQ(helper.getOtherCerts()->size(), 1u);
}

TEST_F(Pkcs11HelperLogin, MayBeTriedAgainAfterAWrongPin) {
    Pkcs11Helper helper(modulePath());
    expectCryptokiError(L"160", [&] { helper.login(pinOf("0000")); });
    EXPECT_THAT(callsDuring([&] { helper.login(pinOf("1234")); }),
                ElementsAre("C_GetTokenInfo", "C_OpenSession", "C_CloseSession", "C_Login"));
    EXPECT_TRUE(token->sessions.begin()->second.loggedIn);
}

struct PinCase {
    const char* name;
    std::string_view bytes;
};

class Pkcs11HelperLoginWithPin : public Pkcs11HelperLogin,
                                 public testing::WithParamInterface<PinCase> {};

TEST_P(Pkcs11HelperLoginWithPin, HandsTheCallersOwnBytesToTheModule) {
    const std::string_view bytes = GetParam().bytes;
    token->slots[0].pin.assign(bytes.begin(), bytes.end());
    const buffer::Buffer<unsigned char> pin = pinOf(bytes);
    Pkcs11Helper helper(modulePath());
    helper.login(pin);
    const Call call = token->callsOf("C_Login").at(0);
    EXPECT_EQ(call.pin, pin.data());
    EXPECT_EQ(call.pinBytes, Bytes(bytes.begin(), bytes.end()));
}

using namespace std::string_view_literals;

INSTANTIATE_TEST_SUITE_P(Of, Pkcs11HelperLoginWithPin,
                         testing::Values(PinCase{"Digits", "123456"}, PinCase{"NoBytes", ""},
                                         PinCase{"MoreBytesThanABufferHoldsInItself",
                                                 "a PIN of more than fifteen bytes"},
                                         PinCase{"ZerosAndBytesThatAreNoText", "1\0\xFF\x80"sv}),
                         [](const auto& pin) { return pin.param.name; });

class Pkcs11HelperDestructor : public faketoken::TokenTest {};

TEST_F(Pkcs11HelperDestructor, UnloadsTheModuleWithoutClosingASessionThatNeverWas) {
    { const Pkcs11Helper helper(modulePath()); }
    EXPECT_EQ(token->count("C_CloseSession"), 0u);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperDestructor, ClosesTheSessionAndThenUnloadsTheModule) {
    {
        Pkcs11Helper helper(modulePath());
        helper.login(pinOf("1234"));
    }
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList", "C_Initialize", "C_GetSlotList",
                                               "C_GetSlotList", "C_GetTokenInfo", "C_OpenSession",
                                               "C_Login", "C_CloseSession", "C_Finalize"));
}

TEST_F(Pkcs11HelperDestructor, ClosesTheSessionThatAWrongPinLeft) {
    {
        Pkcs11Helper helper(modulePath());
        expectCryptokiError(L"160", [&] { helper.login(pinOf("0000")); });
    }
    EXPECT_EQ(token->count("C_CloseSession"), 1u);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperDestructor, SwallowsAFailureToCloseTheSession) {
    token->fail("C_CloseSession", 1, CKR_DEVICE_REMOVED);
    {
        Pkcs11Helper helper(modulePath());
        helper.login(pinOf("1234"));
    }
    EXPECT_EQ(token->count("C_CloseSession"), 1u);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperDestructor, ThrowsAFailureToFinaliseTheModule) {
    token->fail("C_Finalize", 1, CKR_FUNCTION_FAILED);
    expectCryptokiError(L"6", [] { const Pkcs11Helper helper(modulePath()); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(Pkcs11HelperDestructor, DropsAFailureToFinaliseWhileAnotherExceptionIsInFlight) {
    token->fail("C_Finalize", 1, CKR_FUNCTION_FAILED);
    EXPECT_THROW(
        {
            const Pkcs11Helper helper(modulePath());
            throw std::domain_error("the exception in flight");
        },
        std::domain_error);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST(Pkcs11HelperOfTheOnlyUser, LeavesTheModuleFileFree) {
    { const Pkcs11Helper helper(modulePath()); }
    EXPECT_FALSE(faketoken::isLoaded(modulePath()));
}

} // namespace
