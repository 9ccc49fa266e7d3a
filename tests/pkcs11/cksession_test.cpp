// Sessions and login.
#include "cksession.h"
#include "expectcryptokierror.h"
#include "librarytest.h"

#include <gmock/gmock.h>

#include <memory>

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

using faketoken::Call;
using faketoken::expectCryptokiError;
using pkcs11::CkSession;
using testing::ElementsAre;

using Range = buffer::BufferRange<unsigned char>;

constexpr CK_FLAGS readWrite = CKF_RW_SESSION | CKF_SERIAL_SESSION;
constexpr unsigned char rightPin[] = {'1', '2', '3', '4'};
constexpr unsigned char wrongPin[] = {'0'};

using CkSessionTest = pkcs11test::LibraryTest;

TEST_F(CkSessionTest, OpensWithTheGivenSlotAndFlags) {
    CkSession session(*library);
    EXPECT_FALSE(session.isOpen());
    session.open(1, readWrite);
    EXPECT_TRUE(session.isOpen());
    const Call call = token->callsOf("C_OpenSession").at(0);
    EXPECT_EQ(call.slot, 1u);
    EXPECT_EQ(call.flags, 6u);
    EXPECT_EQ(token->sessions.begin()->first, session.handle());
}

TEST_F(CkSessionTest, StaysClosedWhenOpeningFails) {
    CkSession session(*library);
    expectCryptokiError(L"3", [&] { session.open(99, readWrite); });
    EXPECT_FALSE(session.isOpen());
}

TEST_F(CkSessionTest, IsNotOpenedTwice) {
    CkSession session(*library);
    session.open(1, readWrite);
    expectCryptokiError(L"7", [&] { session.open(1, readWrite); });
    EXPECT_EQ(token->count("C_OpenSession"), 1u);
}

TEST_F(CkSessionTest, IsClosedOnceByClose) {
    CkSession session(*library);
    session.open(1, readWrite);
    const CK_SESSION_HANDLE handle = session.handle();
    session.close();
    EXPECT_FALSE(session.isOpen());
    session.close();
    ASSERT_EQ(token->count("C_CloseSession"), 1u);
    EXPECT_EQ(token->callsOf("C_CloseSession")[0].session, handle);
}

TEST_F(CkSessionTest, CountsAsClosedWhenClosingFailed) {
    CkSession session(*library);
    session.open(1, readWrite);
    token->fail("C_CloseSession", 1, CKR_DEVICE_REMOVED);
    expectCryptokiError(L"50", [&] { session.close(); });
    EXPECT_FALSE(session.isOpen());
    session.close();
    EXPECT_EQ(token->count("C_CloseSession"), 1u);
}

TEST_F(CkSessionTest, CanBeOpenedAgainAfterItWasClosed) {
    CkSession session(*library);
    session.open(1, readWrite);
    session.close();
    session.open(1, readWrite);
    EXPECT_TRUE(session.isOpen());
}

TEST_F(CkSessionTest, ClosesWhenDestroyed) {
    { CkSession(*library).open(1, readWrite); }
    EXPECT_EQ(token->count("C_CloseSession"), 1u);
    EXPECT_EQ(token->openSessions(), 0u);
}

TEST_F(CkSessionTest, DoesNotCloseWhatWasNeverOpenedWhenDestroyed) {
    { const CkSession session(*library); }
    EXPECT_EQ(token->count("C_CloseSession"), 0u);
}

TEST_F(CkSessionTest, SwallowsAFailureToCloseWhenDestroyed) {
    token->fail("C_CloseSession", 1, CKR_DEVICE_REMOVED);
    {
        CkSession session(*library);
        session.open(1, readWrite);
    }
    EXPECT_EQ(token->callsOf("C_CloseSession").at(0).answer, CK_RV{CKR_DEVICE_REMOVED});
}

TEST_F(CkSessionTest, HandsTheCallersOwnPinToTheModule) {
    CkSession session(*library);
    session.open(1, readWrite);
    session.login(CKU_USER, Range(rightPin, 4));
    const Call call = token->callsOf("C_Login").at(0);
    EXPECT_EQ(call.session, session.handle());
    EXPECT_EQ(call.userType, 1u);
    EXPECT_EQ(call.pin, rightPin);
    EXPECT_THAT(call.pinBytes, ElementsAre('1', '2', '3', '4'));
}

TEST_F(CkSessionTest, HandsANullPinOnAsNull) {
    CkSession session(*library);
    session.open(1, readWrite);
    expectCryptokiError(L"160", [&] { session.login(CKU_USER, Range()); });
    EXPECT_EQ(token->callsOf("C_Login").at(0).pin, nullptr);
}

#ifdef _WIN32
TEST_F(CkSessionTest, RefusesAPinOfMoreBytesThanCryptokiCanSay) {
    CkSession session(*library);
    session.open(1, readWrite);
    // Addresses without memory behind them: nothing is to read there.
    const std::size_t size = (std::size_t{1} << 32) + 4;
    void* room = VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
    ASSERT_NE(room, nullptr);
    const Range pin(static_cast<const unsigned char*>(room), size);
    expectCryptokiError(L"162", [&] { session.login(CKU_USER, pin); });
    EXPECT_EQ(token->count("C_Login"), 0u);
    VirtualFree(room, 0, MEM_RELEASE);
}
#endif

TEST_F(CkSessionTest, StaysOpenWhenLoginFails) {
    CkSession session(*library);
    session.open(1, readWrite);
    expectCryptokiError(L"160", [&] { session.login(CKU_USER, Range(wrongPin, 1)); });
    EXPECT_TRUE(session.isOpen());
    EXPECT_EQ(token->openSessions(), 1u);
}

TEST_F(CkSessionTest, CannotLogInBeforeItIsOpen) {
    CkSession session(*library);
    expectCryptokiError(L"179", [&] { session.login(CKU_USER, Range(rightPin, 4)); });
}

TEST_F(CkSessionTest, LeavesAModuleAloneThatWasUnloadedBeforeIt) {
    auto session = std::make_unique<CkSession>(*library);
    session->open(1, readWrite);
    library.reset();
    token->forgetCalls();
    session.reset();
    EXPECT_TRUE(token->calls.empty());
    // The module itself closed the session when it was finalised.
    EXPECT_EQ(std::exchange(token->sessionsLeftAtFinalize, 0u), 1u);
}

} // namespace
