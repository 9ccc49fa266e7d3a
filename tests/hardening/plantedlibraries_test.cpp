// Libraries that lie where an attacker can put them, in the current directory and in the search
// path, and must not be loaded instead of a module or of what it needs. Through the DLL and the
// program; tests/pkcs11 has more about where modules are looked for.
#include "expectcryptokierror.h"
#include "loadedtoken.h"
#include "pkcs11helper.h"
#include "runningonwine.h"
#include "temporaryfolder.h"
#include "updaterprogram.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

using faketoken::modulePath;
using faketoken::plantedFolder;
using pkcs11::certstoreupdater::Pkcs11Helper;

constexpr wchar_t notFound[] = L"126"; // ERROR_MOD_NOT_FOUND

/// A folder that is both the current directory and the first of the search path for as long as this
/// lives.
class Planted {
public:
    explicit Planted(const fs::path& folder)
        : currentPath_(fs::current_path()), searchPath_(std::getenv("PATH")) {
        fs::current_path(folder);
        SetEnvironmentVariableA("PATH", (folder.string() + ";" + searchPath_).c_str());
    }
    ~Planted() {
        SetEnvironmentVariableA("PATH", searchPath_.c_str());
        fs::current_path(currentPath_);
    }
    Planted(const Planted&) = delete;
    Planted& operator=(const Planted&) = delete;

private:
    fs::path currentPath_;
    std::string searchPath_;
};

/// What the system's loader does by itself: the check that the trap works.
bool systemFinds(const fs::path& name) {
    const HMODULE handle = LoadLibraryW(name.c_str());
    if (handle)
        FreeLibrary(handle);
    return handle != nullptr;
}

std::wstring reasonForNotLoading(const std::string& module) {
    const auto error = faketoken::cryptokiErrorOf([&] { Pkcs11Helper helper(module); });
    return error && error->parent() ? faketoken::paramOf(*error->parent(), L"ERROR") : L"no reason";
}

class PlantedModule : public testing::TestWithParam<const char*> {
protected:
    PlantedModule() { fs::copy_file(modulePath(), folder.path() / "csu-test-planted.dll"); }

    testsupport::TemporaryFolder folder;
};

TEST_P(PlantedModule, IsNotTakenForOneThatIsNamedWithoutAFolder) {
    const Planted planted(folder.path());
    ASSERT_TRUE(systemFinds(GetParam()));
    EXPECT_EQ(reasonForNotLoading(GetParam()), notFound);
}

TEST_P(PlantedModule, IsNotTakenByTheProgram) {
    const Planted planted(folder.path());
    const fs::path name = GetParam();
    const auto outcome = testsupport::runUpdater(
        {{L"status", L"--module", name.wstring(), L"--allow-unsigned-module", L"--csp", L"CSP"}});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_THAT(outcome.errors,
                testing::HasSubstr("neither beside this program nor in the system's folder"));
}

INSTANTIATE_TEST_SUITE_P(Named, PlantedModule,
                         testing::Values("csu-test-planted.dll", "csu-test-planted"),
                         [](const auto& name) {
                             return fs::path(name.param).has_extension() ? "WithItsExtension"
                                                                         : "WithoutItsExtension";
                         });

class PlantedLibrary : public testing::Test {
protected:
    std::string copied(const fs::path& file) const {
        const fs::path copy = folder.path() / file.filename();
        fs::copy_file(file, copy);
        return copy.string();
    }

    testsupport::TemporaryFolder folder;
};

TEST_F(PlantedLibrary, IsNotTakenForWhatALibraryNeedsThatTheModuleNeeds) {
    const Planted planted(plantedFolder());
    ASSERT_TRUE(systemFinds(modulePath("needsneighbour")));
    EXPECT_EQ(reasonForNotLoading(modulePath("needsneighbour")), notFound);

    // All three together are what the module's maker delivers.
    const std::string module = copied(modulePath("needsneighbour"));
    copied(modulePath("neighbour"));
    copied(fs::path(plantedFolder()) / "plantedlibrary.dll");
    EXPECT_EQ(reasonForNotLoading(module), L"C_GetFunctionList is missing");
}

// What a module loads later it looks for by the rules of the process, which are the program's to
// make.
class LibraryThatAModuleLoadsLater : public PlantedLibrary {
protected:
    std::string recorded() const {
        std::ifstream file(record);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    const fs::path record = folder.path() / "record";
    const std::string module = copied(modulePath("loadslater"));
};

TEST_F(LibraryThatAModuleLoadsLater, IsNotTakenFromTheProgramsCurrentDirectory) {
    if (testsupport::runningOnWine())
        GTEST_SKIP() << "Wine looks there even when SetDllDirectory forbids it";
    const fs::path previous = fs::current_path();
    fs::current_path(plantedFolder());
    const auto outcome =
        testsupport::runUpdater({{L"status", L"--module", fs::path(module).wstring(),
                                  L"--allow-unsigned-module", L"--csp", L"CSP"},
                                 "",
                                 {{L"LOADSLATER_RECORD", record.wstring()}}});
    fs::current_path(previous);
    EXPECT_EQ(outcome.exitCode, 3) << testing::PrintToString(outcome);
    EXPECT_EQ(recorded(), "not found");
}

TEST_F(LibraryThatAModuleLoadsLater, IsLookedForAsTheProgramThatUsesTheDllHasIt) {
    const fs::path previous = fs::current_path();
    fs::current_path(plantedFolder());
    SetEnvironmentVariableW(L"LOADSLATER_RECORD", record.c_str());
    faketoken::expectCryptokiError(L"6", [&] { Pkcs11Helper helper(module); });
    EXPECT_EQ(recorded(), "found");

    // Another folder instead of the current one.
    SetDllDirectoryW(folder.path().c_str());
    faketoken::expectCryptokiError(L"6", [&] { Pkcs11Helper helper(module); });
    SetDllDirectoryW(nullptr);
    SetEnvironmentVariableW(L"LOADSLATER_RECORD", nullptr);
    fs::current_path(previous);
    EXPECT_EQ(recorded(), "not found");
}

} // namespace
