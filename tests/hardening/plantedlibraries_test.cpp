// Libraries that lie where an attacker can put them, in the current directory and in the search
// path, and that must not be loaded in place of a module or of what it needs. Tried through the DLL
// and the program; tests/pkcs11 has more about where modules are looked for.
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
#include <optional>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

using faketoken::modulePath;
using faketoken::plantedFolder;
using pkcs11::certstoreupdater::Pkcs11Helper;

constexpr wchar_t notFound[] = L"126"; // ERROR_MOD_NOT_FOUND

/// Makes a folder the current directory for as long as this lives.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const fs::path& folder) : previous_(fs::current_path()) {
        fs::current_path(folder);
    }
    ~CurrentDirectory() {
        std::error_code ignored;
        fs::current_path(previous_, ignored);
    }
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

private:
    fs::path previous_;
};

/// Gives an environment variable a value for as long as this lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const std::string& value) : name_(name) {
        if (const char* const previous = std::getenv(name))
            previous_ = previous;
        SetEnvironmentVariableA(name_, value.c_str());
    }
    ~EnvironmentVariable() {
        SetEnvironmentVariableA(name_, previous_ ? previous_->c_str() : nullptr);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    const char* name_;
    std::optional<std::string> previous_;
};

/// A folder that is both the current directory and the first of the search path for as long as this
/// lives.
class Planted {
public:
    explicit Planted(const fs::path& folder)
        : currentDirectory_(folder),
          searchPath_("PATH", folder.string() + ";" + std::getenv("PATH")) {}

private:
    CurrentDirectory currentDirectory_;
    EnvironmentVariable searchPath_;
};

/// Whether the system's own search finds it, which shows that the trap works.
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

    // All three in one folder: that is how a module is delivered.
    const std::string module = copied(modulePath("needsneighbour"));
    copied(modulePath("neighbour"));
    copied(fs::path(plantedFolder()) / "plantedlibrary.dll");
    EXPECT_EQ(reasonForNotLoading(module), L"C_GetFunctionList is missing");
}

// What a module loads later is looked for by the rules of the process, which the program makes.
class LibraryThatAModuleLoadsLater : public PlantedLibrary {
protected:
    std::string recorded() const {
        std::ifstream file(record);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    const fs::path record = folder.path() / "record";
    const std::string module = copied(modulePath("loadslater"));
};

/// Whether SetDllDirectory takes the current directory out of the search for libraries, as
/// Microsoft documents; Wine looks there all the same.
bool currentDirectoryCanBeExcluded() {
    const testsupport::TemporaryFolder folder("certstoreupdater search");
    const std::wstring name = L"plantedforprobe.dll";
    fs::copy_file(fs::path(plantedFolder()) / "plantedlibrary.dll", folder.path() / name);
    const CurrentDirectory current(folder.path());
    SetDllDirectoryW(L"");
    const HMODULE found = LoadLibraryW(name.c_str());
    SetDllDirectoryW(nullptr);
    if (found)
        FreeLibrary(found);
    return !found;
}

TEST_F(LibraryThatAModuleLoadsLater, IsNotTakenFromTheProgramsCurrentDirectory) {
    if (testsupport::runningOnWine() && !currentDirectoryCanBeExcluded())
        GTEST_SKIP() << "Wine looks there even when SetDllDirectory forbids it";
    const CurrentDirectory planted(plantedFolder());
    const auto outcome =
        testsupport::runUpdater({{L"status", L"--module", fs::path(module).wstring(),
                                  L"--allow-unsigned-module", L"--csp", L"CSP"},
                                 "",
                                 {{L"LOADSLATER_RECORD", record.wstring()}}});
    EXPECT_EQ(outcome.exitCode, 3) << testing::PrintToString(outcome);
    EXPECT_EQ(recorded(), "not found");
}

TEST_F(LibraryThatAModuleLoadsLater, IsLookedForAsTheProgramThatUsesTheDllHasIt) {
    const CurrentDirectory planted(plantedFolder());
    const EnvironmentVariable recordVariable("LOADSLATER_RECORD", record.string());
    faketoken::expectCryptokiError(L"6", [&] { Pkcs11Helper helper(module); });
    EXPECT_EQ(recorded(), "found");

    // Another folder instead of the current one.
    SetDllDirectoryW(folder.path().c_str());
    faketoken::expectCryptokiError(L"6", [&] { Pkcs11Helper helper(module); });
    SetDllDirectoryW(nullptr);
    EXPECT_EQ(recorded(), "not found");
}

} // namespace
