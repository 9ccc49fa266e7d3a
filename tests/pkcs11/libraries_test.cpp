// Loading, counting and unloading modules.
#include "ckslots.h"
#include "expectcryptokierror.h"
#include "libraries.h"
#include "librarytest.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using faketoken::cryptokiErrorOf;
using faketoken::expectCryptokiError;
using faketoken::modulePath;
using faketoken::paramOf;
using pkcs11::CkLibrary;
using pkcs11::CkSlots;
using pkcs11::Libraries;
using pkcs11test::ScopedLibrary;
using testing::ElementsAre;

class LibrariesLoad : public faketoken::TokenTest {
protected:
    // That nothing of the failed load is left, the fixture asks the module itself.
    void expectUnusable(const std::wstring& reason) {
        const auto error = cryptokiErrorOf([] { Libraries::instance().load(modulePath()); });
        ASSERT_TRUE(error);
        EXPECT_EQ(paramOf(*error, L"CRYPTOKY_ERROR_CODE"), L"5");
        ASSERT_TRUE(error->parent());
        EXPECT_STREQ(error->parent()->what(), "ModuleNotLoaded");
        ASSERT_EQ(error->parent()->params().size(), 2u);
        const std::string path = modulePath();
        EXPECT_EQ(paramOf(*error->parent(), L"MODULE"), std::wstring(path.begin(), path.end()));
        EXPECT_EQ(paramOf(*error->parent(), L"ERROR"), reason);
        EXPECT_EQ(error->parent()->file(), error->file());
        EXPECT_EQ(error->parent()->line(), error->line());
    }
};
using LibrariesUnload = faketoken::TokenTest;

TEST_F(LibrariesLoad, InitialisesTheModuleForTheSystemsLocks) {
    const ScopedLibrary library;
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList", "C_Initialize"));
    EXPECT_EQ(token->calls[1].flags, CK_FLAGS{CKF_OS_LOCKING_OK});
}

TEST_F(LibrariesLoad, TakesAModuleThatIsLoadedTwiceForOneWithACount) {
    Libraries& libraries = Libraries::instance();
    const CkLibrary first = libraries.load(modulePath());
    const CkLibrary second = libraries.load(modulePath());
    EXPECT_EQ(first, second);
    EXPECT_EQ(token->count("C_Initialize"), 1u);

    libraries.unload(first);
    EXPECT_EQ(token->count("C_Finalize"), 0u);
    EXPECT_EQ(CkSlots(second, true).size(), 1u);

    libraries.unload(second);
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(LibrariesLoad, InitialisesAModuleAgainThatWasUnloaded) {
    { const ScopedLibrary library; }
    { const ScopedLibrary library; }
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList", "C_Initialize", "C_Finalize",
                                               "C_GetFunctionList", "C_Initialize", "C_Finalize"));
}

TEST_F(LibrariesLoad, UsesAModuleThatTheProcessUsesAlreadyAndNeverFinalisesIt) {
    CK_FUNCTION_LIST& functions = token.functions();
    ASSERT_EQ(functions.C_Initialize(nullptr), CKR_OK);
    {
        const ScopedLibrary library;
        EXPECT_EQ(token->callsOf("C_Initialize").back().answer,
                  CK_RV{CKR_CRYPTOKI_ALREADY_INITIALIZED});
        EXPECT_EQ(CkSlots(library, true).size(), 1u);
    }
    EXPECT_EQ(token->count("C_Finalize"), 0u);
    EXPECT_TRUE(token->initialized);
    functions.C_Finalize(nullptr);
}

TEST_F(LibrariesLoad, AsksAModuleThatIsLoadedWhetherItIsStillInitialised) {
    const ScopedLibrary first;
    const ScopedLibrary second;
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList", "C_Initialize", "C_GetInfo"));
}

/// A module that was loaded and then finalised by other code of the process.
class LibrariesLoadOfAFinalizedModule : public LibrariesLoad {
protected:
    void finalizeAsOthersDo() { ASSERT_EQ(token.functions().C_Finalize(nullptr), CKR_OK); }
    void initializeAsOthersDo() { ASSERT_EQ(token.functions().C_Initialize(nullptr), CKR_OK); }

    Libraries& libraries = Libraries::instance();
};

TEST_F(LibrariesLoadOfAFinalizedModule, InitialisesItAgainAndFinalisesItOnce) {
    const CkLibrary first = libraries.load(modulePath());
    finalizeAsOthersDo();
    {
        const ScopedLibrary second;
        EXPECT_EQ(token->callsOf("C_Initialize").back().flags, CK_FLAGS{CKF_OS_LOCKING_OK});
        EXPECT_EQ(CkSlots(second, true).size(), 1u);
        const ScopedLibrary third;
        EXPECT_EQ(static_cast<const CkLibrary&>(second), static_cast<const CkLibrary&>(third));
        EXPECT_EQ(token->count("C_Initialize"), 2u);
    }
    EXPECT_EQ(token->count("C_Finalize"), 2u) << "once by others, once with the last unload";
    libraries.unload(first);
    EXPECT_EQ(token->count("C_Finalize"), 2u);
}

TEST_F(LibrariesLoadOfAFinalizedModule, LeavesEarlierHandlesWithoutUse) {
    const CkLibrary first = libraries.load(modulePath());
    finalizeAsOthersDo();
    {
        const ScopedLibrary second;
        EXPECT_NE(first, static_cast<const CkLibrary&>(second));
        token->forgetCalls();
        expectCryptokiError(L"400", [&] { CkSlots(first, true); });
        EXPECT_TRUE(token->calls.empty());
        libraries.unload(first);
        expectCryptokiError(L"7", [&] { libraries.unload(first); });
        EXPECT_TRUE(token->calls.empty());
        EXPECT_EQ(CkSlots(second, true).size(), 1u);
    }
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(LibrariesLoadOfAFinalizedModule, FinalisesItIfItWasOthersWhoInitialisedItBefore) {
    initializeAsOthersDo();
    const ScopedLibrary first;
    finalizeAsOthersDo();
    { const ScopedLibrary second; }
    EXPECT_EQ(token->count("C_Finalize"), 2u);
}

TEST_F(LibrariesLoadOfAFinalizedModule, NeverFinalisesItIfOthersWereFasterToInitialiseIt) {
    const ScopedLibrary first;
    finalizeAsOthersDo();
    token->hook = [&](const faketoken::Call& call) -> std::optional<CK_RV> {
        if (call.function != "C_Initialize")
            return std::nullopt;
        token->initialized = true;
        return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    };
    {
        const ScopedLibrary second;
        EXPECT_EQ(CkSlots(second, true).size(), 1u);
    }
    token->hook = nullptr;
    EXPECT_EQ(token->count("C_Finalize"), 1u);
    EXPECT_TRUE(token->initialized);
    finalizeAsOthersDo();
}

TEST_F(LibrariesLoadOfAFinalizedModule, ThrowsTheAnswerOfAFailedInitialisation) {
    const CkLibrary first = libraries.load(modulePath());
    finalizeAsOthersDo();
    token->fail("C_Initialize", 1, CKR_DEVICE_ERROR);
    expectCryptokiError(L"48", [&] { libraries.load(modulePath()); });
    { const ScopedLibrary afterwards; }
    libraries.unload(first);
    EXPECT_EQ(token->count("C_Finalize"), 2u);
}

TEST_F(LibrariesLoadOfAFinalizedModule, DoesNotClaimItIfItIsNotLoadedAgain) {
    const CkLibrary first = libraries.load(modulePath());
    finalizeAsOthersDo();
    expectCryptokiError(L"400", [&] { CkSlots(first, true); });
    expectCryptokiError(L"400", [&] { libraries.unload(first); });
}

TEST_F(LibrariesLoad, TakesAModuleThatCannotBeAskedForOneThatIsInitialised) {
    token->missingFunction = "C_GetInfo";
    const ScopedLibrary first;
    const ScopedLibrary second;
    EXPECT_EQ(token->count("C_Initialize"), 1u);
    EXPECT_EQ(CkSlots(second, true).size(), 1u);
}

TEST_F(LibrariesLoad, ThrowsTheAnswerOfAFailedInitialisationAndLoadsNothing) {
    token->fail("C_Initialize", 1, CKR_DEVICE_ERROR);
    expectCryptokiError(L"48", [] { Libraries::instance().load(modulePath()); });
    EXPECT_EQ(token->count("C_Finalize"), 0u);
}

TEST_F(LibrariesLoad, CanLoadAModuleWhoseInitialisationFailedBefore) {
    token->fail("C_Initialize", 1, CKR_DEVICE_ERROR);
    expectCryptokiError(L"48", [] { Libraries::instance().load(modulePath()); });
    const ScopedLibrary library;
    EXPECT_TRUE(token->initialized);
}

TEST_F(LibrariesLoad, ThrowsTheAnswerOfAFailedGetFunctionList) {
    token->fail("C_GetFunctionList", 1, CKR_HOST_MEMORY);
    expectCryptokiError(L"2", [] { Libraries::instance().load(modulePath()); });
    EXPECT_EQ(token->count("C_Initialize"), 0u);
}

TEST_F(LibrariesLoad, RefusesAModuleThatGivesNoFunctionList) {
    token->nullFunctionList = true;
    expectUnusable(L"the function list is missing");
}

class LibrariesLoadWithout : public LibrariesLoad,
                             public testing::WithParamInterface<std::string> {};

TEST_P(LibrariesLoadWithout, RefusesTheModuleAndCallsNothingOfIt) {
    token->missingFunction = GetParam();
    expectUnusable(std::wstring(GetParam().begin(), GetParam().end()) + L" is missing");
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList"));
}

INSTANTIATE_TEST_SUITE_P(WhatLoadingNeeds, LibrariesLoadWithout,
                         testing::Values("C_Initialize", "C_Finalize"),
                         [](const auto& function) { return function.param; });

void loadAndUnload() {
    for (int i = 0; i != 200; ++i)
        const ScopedLibrary library;
}

TEST_F(LibrariesLoad, CountsTheLoadsOfSeveralThreads) {
    {
        const ScopedLibrary library;
        std::vector<std::thread> threads;
        for (int i = 0; i != 4; ++i)
            threads.emplace_back(loadAndUnload);
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(token->count("C_Initialize"), 1u);
        EXPECT_EQ(token->count("C_Finalize"), 0u);
    }
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(LibrariesLoad, TakesTurnsWithOtherThreadsThatLoadAndUnload) {
    std::thread other(loadAndUnload);
    loadAndUnload();
    other.join();
    EXPECT_EQ(token->count("C_Initialize"), token->count("C_Finalize"));
}

TEST(LibrariesLoadOfAnotherLibrary, FailsAndFreesItWithoutCGetFunctionList) {
    const std::string path = modulePath("nofunctionlist");
    const auto error = cryptokiErrorOf([&] { Libraries::instance().load(path); });
    ASSERT_TRUE(error);
    EXPECT_EQ(paramOf(*error, L"CRYPTOKY_ERROR_CODE"), L"5");
    ASSERT_TRUE(error->parent());
    EXPECT_EQ(paramOf(*error->parent(), L"ERROR"), L"C_GetFunctionList is missing");
    EXPECT_FALSE(faketoken::isLoaded(path));
}

TEST_F(LibrariesLoad, OfAnotherLibraryLeavesTheLoadedModuleAlone) {
    const ScopedLibrary library;
    expectCryptokiError(L"5", [] { Libraries::instance().load(modulePath("nofunctionlist")); });
    EXPECT_EQ(CkSlots(library, true).size(), 1u);
}

TEST(LibrariesLoadOfTheFakeToken, FreesTheModuleWithItsLastUnload) {
    Libraries& libraries = Libraries::instance();
    const CkLibrary first = libraries.load(modulePath());
    const CkLibrary second = libraries.load(modulePath());
    libraries.unload(first);
    EXPECT_TRUE(faketoken::isLoaded(modulePath()));
    libraries.unload(second);
    EXPECT_FALSE(faketoken::isLoaded(modulePath()));
}

TEST_F(LibrariesUnload, FinalisesTheModule) {
    { const ScopedLibrary library; }
    EXPECT_THAT(token->sequence(), ElementsAre("C_GetFunctionList", "C_Initialize", "C_Finalize"));
}

TEST_F(LibrariesUnload, ThrowsTheAnswerOfAFailedFinalisationAfterItFreedTheModule) {
    token->fail("C_Finalize", 1, CKR_FUNCTION_FAILED);
    const CkLibrary library = Libraries::instance().load(modulePath());
    expectCryptokiError(L"6", [&] { Libraries::instance().unload(library); });
    expectCryptokiError(L"7", [&] { Libraries::instance().unload(library); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(LibrariesUnload, ThrowsArgumentsBadForAHandleThatIsNotLoaded) {
    expectCryptokiError(L"7", [] { Libraries::instance().unload(CkLibrary()); });

    const CkLibrary library = Libraries::instance().load(modulePath());
    Libraries::instance().unload(library);
    expectCryptokiError(L"7", [&] { Libraries::instance().unload(library); });
    EXPECT_EQ(token->count("C_Finalize"), 1u);
}

TEST_F(LibrariesUnload, LeavesHandlesOfTheModuleWithoutUse) {
    const CkLibrary library = Libraries::instance().load(modulePath());
    Libraries::instance().unload(library);
    token->forgetCalls();
    expectCryptokiError(L"400", [&] { CkSlots(library, true); });
    EXPECT_TRUE(token->calls.empty());
}

TEST(CkLibraryWithoutAModule, CannotBeUsed) {
    expectCryptokiError(L"400", [] { CkSlots(CkLibrary(), true); });
}

} // namespace
