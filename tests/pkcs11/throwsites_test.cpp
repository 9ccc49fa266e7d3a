// Each error names the source file and the line that threw it.
#include "ckattributes.h"
#include "ckobjectsfinder.h"
#include "cksession.h"
#include "ckslots.h"
#include "expectcryptokierror.h"
#include "librarytest.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using faketoken::cryptokiErrorOf;
using pkcs11::CkLibrary;
using pkcs11::Libraries;

#ifdef _WIN32
constexpr wchar_t loaderFile[] = L"pkcs11\\src\\dynamiclibrarywindows.cpp";
constexpr wchar_t otherLoaderFile[] = L"pkcs11\\src\\dynamiclibraryposix.cpp";
#else
constexpr wchar_t loaderFile[] = L"pkcs11\\src\\dynamiclibraryposix.cpp";
constexpr wchar_t otherLoaderFile[] = L"pkcs11\\src\\dynamiclibrarywindows.cpp";
#endif

class ThrowSite : public faketoken::TokenTest {
protected:
    /// What throws, by the file that it does so in.
    const std::map<std::wstring, std::function<void()>> actions{
        {L"pkcs11\\include\\ckattributes.h", [] { pkcs11::CkAttributes().value(pkcs11::cka::id); }},
        {L"pkcs11\\src\\ckobjectsfinder.cpp",
         [] {
             const pkcs11test::ScopedLibrary library;
             pkcs11::CkSession session(library);
             pkcs11::CkObjectsFinder(session).init({});
         }},
        {L"pkcs11\\src\\cksession.cpp",
         [] {
             const pkcs11test::ScopedLibrary library;
             pkcs11::CkSession(library).open(99, CKF_SERIAL_SESSION);
         }},
        {L"pkcs11\\src\\ckslots.cpp",
         [this] {
             token->fail("C_GetSlotList", 1, CKR_DEVICE_ERROR);
             const pkcs11test::ScopedLibrary library;
             pkcs11::CkSlots(library, true);
         }},
        {L"pkcs11\\src\\cktoken.cpp",
         [] {
             const pkcs11test::ScopedLibrary library;
             pkcs11::CkToken(library, 99).info();
         }},
        {loaderFile, [] { Libraries::instance().load("no/such/module"); }},
        {L"pkcs11\\src\\libraries.cpp", [] { Libraries::instance().unload(CkLibrary()); }},
        {L"pkcs11\\src\\module.cpp", [] { pkcs11::CkSlots(CkLibrary(), true); }},
    };
};

TEST_F(ThrowSite, IsNamedByEachError) {
    for (const auto& [file, action] : actions) {
        SCOPED_TRACE(testing::PrintToString(file));
        const auto error = cryptokiErrorOf(action);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->file().c_str(), file);
        testsupport::expectThrowSite(*error);
        if (error->parent()) {
            EXPECT_EQ(error->parent()->file().c_str(), file);
            EXPECT_EQ(error->parent()->line(), error->line());
        }
    }
}

TEST_F(ThrowSite, IsTriedInEveryFileThatThrows) {
    std::vector<std::wstring> tried{otherLoaderFile};
    for (const auto& [file, action] : actions)
        tried.push_back(file);
    const std::vector<std::wstring> throwing = testsupport::throwingFiles("pkcs11");
    if (throwing.empty())
        GTEST_SKIP() << "the sources are not on this machine";
    EXPECT_THAT(throwing, testing::UnorderedElementsAreArray(tried));
}

} // namespace
