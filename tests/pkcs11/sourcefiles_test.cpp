// Errors name the source file that they come from.
#include "ckobjectsfinder.h"
#include "cksession.h"
#include "ckslots.h"
#include "cktoken.h"
#include "expectcryptokierror.h"
#include "librarytest.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using faketoken::cryptokiErrorOf;
using pkcs11::CkAttributes;
using pkcs11::CkLibrary;
using pkcs11::CkObjectsFinder;
using pkcs11::CkSession;
using pkcs11::CkSlots;
using pkcs11::CkToken;
using pkcs11::Libraries;

using SourceFile = pkcs11test::LibraryTest;

/// The source file of the error that `action` throws, and of its cause if it has one.
template <class Action>
std::wstring fileOf(Action action) {
    const auto error = cryptokiErrorOf(action);
    if (!error)
        return L"none";
    if (error->parent()) {
        EXPECT_EQ(error->parent()->file(), error->file());
    }
    return error->file().c_str();
}

TEST_F(SourceFile, OfAFailedSearchIsThatOfTheFinder) {
    CkSession session(*library);
    session.open(1, CKF_SERIAL_SESSION);
    token->fail("C_FindObjectsInit", 1, CKR_DEVICE_ERROR);
    CkObjectsFinder finder(session);
    EXPECT_EQ(fileOf([&] { finder.init(CkAttributes()); }), L"pkcs11\\src\\ckobjectsfinder.cpp");
}

TEST_F(SourceFile, OfASessionThatDoesNotOpenIsThatOfSessions) {
    CkSession session(*library);
    EXPECT_EQ(fileOf([&] { session.open(99, CKF_SERIAL_SESSION); }), L"pkcs11\\src\\cksession.cpp");
}

TEST_F(SourceFile, OfAListThatFailsIsThatOfSlots) {
    token->fail("C_GetSlotList", 1, CKR_DEVICE_ERROR);
    EXPECT_EQ(fileOf([&] { CkSlots(*library, true); }), L"pkcs11\\src\\ckslots.cpp");
}

TEST_F(SourceFile, OfATokenThatDoesNotAnswerIsThatOfTokens) {
    token->fail("C_GetTokenInfo", 1, CKR_DEVICE_ERROR);
    EXPECT_EQ(fileOf([&] { CkToken(*library, 1).info(); }), L"pkcs11\\src\\cktoken.cpp");
}

TEST_F(SourceFile, OfALibraryThatIsNotLoadedIsThatOfLibraries) {
    const CkLibrary unloaded = *library;
    library.reset();
    EXPECT_EQ(fileOf([&] { Libraries::instance().unload(unloaded); }),
              L"pkcs11\\src\\libraries.cpp");
}

TEST_F(SourceFile, OfAModuleThatDoesNotStartIsThatOfModules) {
    library.reset();
    token->fail("C_Initialize", 1, CKR_DEVICE_ERROR);
    EXPECT_EQ(fileOf([] { Libraries::instance().load(faketoken::modulePath()); }),
              L"pkcs11\\src\\module.cpp");
    token->nullFunctionList = true;
    EXPECT_EQ(fileOf([] { Libraries::instance().load(faketoken::modulePath()); }),
              L"pkcs11\\src\\module.cpp");
}

TEST_F(SourceFile, OfAFileThatIsNotThereIsThatOfTheSystemsLoader) {
#ifdef _WIN32
    const wchar_t* const loader = L"pkcs11\\src\\dynamiclibrarywindows.cpp";
#else
    const wchar_t* const loader = L"pkcs11\\src\\dynamiclibraryposix.cpp";
#endif
    EXPECT_EQ(fileOf([] { Libraries::instance().load("no such module"); }), loader);
}

} // namespace
