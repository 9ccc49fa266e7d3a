// What the tests of this room share: the fake token, and that nothing of it stays behind.
#pragma once

#include "libraries.h"
#include "loadedtoken.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace pkcs11test {

/// Loads the fake token for the test to script. Afterwards no session, search or reference to the
/// module may be left.
class TokenTest : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(token->openSessions(), 0u);
        EXPECT_EQ(token->activeSearches(), 0u);
        EXPECT_EQ(token->sessionsLeftAtFinalize, 0u);
        EXPECT_FALSE(token->initialized);
        EXPECT_FALSE(token.release()) << "the module is still loaded";
    }

    faketoken::LoadedToken token;
};

/// Loads a module through the registry for as long as it lives.
class ScopedLibrary {
public:
    explicit ScopedLibrary(const std::string& path = faketoken::modulePath())
        : library_(pkcs11::Libraries::instance().load(path)) {}
    ~ScopedLibrary() { pkcs11::Libraries::instance().unload(library_); }
    ScopedLibrary(const ScopedLibrary&) = delete;
    ScopedLibrary& operator=(const ScopedLibrary&) = delete;

    operator const pkcs11::CkLibrary&() const { return library_; }

private:
    pkcs11::CkLibrary library_;
};

/// The same with the module loaded as a caller loads it.
class LibraryTest : public TokenTest {
protected:
    void SetUp() override { library = std::make_unique<ScopedLibrary>(); }
    void TearDown() override {
        library.reset();
        TokenTest::TearDown();
    }

    std::unique_ptr<ScopedLibrary> library;
};

} // namespace pkcs11test
