// What the tests of this layer share.
#pragma once

#include "libraries.h"
#include "tokentest.h"

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

namespace pkcs11test {

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

/// The fake token, loaded as a caller loads it.
class LibraryTest : public faketoken::TokenTest {
protected:
    void SetUp() override { library = std::make_unique<ScopedLibrary>(); }
    void TearDown() override {
        library.reset();
        TokenTest::TearDown();
    }

    std::unique_ptr<ScopedLibrary> library;
};

/// The current directory of this process for as long as it lives.
class ScopedCurrentPath {
public:
    explicit ScopedCurrentPath(const std::filesystem::path& path)
        : previous_(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    ~ScopedCurrentPath() {
        std::error_code ignored;
        std::filesystem::current_path(previous_, ignored);
    }
    ScopedCurrentPath(const ScopedCurrentPath&) = delete;
    ScopedCurrentPath& operator=(const ScopedCurrentPath&) = delete;

private:
    std::filesystem::path previous_;
};

} // namespace pkcs11test
