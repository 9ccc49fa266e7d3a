// Where a module file is looked for, and where not.
#include "expectcryptokierror.h"
#include "libraries.h"
#include "librarytest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

namespace fs = std::filesystem;

using faketoken::cryptokiErrorOf;
using faketoken::fileNameOf;
using faketoken::modulePath;
using faketoken::paramOf;
using faketoken::plantedFolder;
using pkcs11::CkLibrary;
using pkcs11::Libraries;
using pkcs11test::ScopedCurrentPath;
using pkcs11test::ScopedLibrary;

#ifdef _WIN32
constexpr wchar_t notFound[] = L"126"; // ERROR_MOD_NOT_FOUND
#endif

// Whether the system's own loader finds a bare name. If not, the trap of a test catches nothing.
bool systemFinds(const std::string& name) {
#ifdef _WIN32
    const HMODULE handle = LoadLibraryA(name.c_str());
    if (handle)
        FreeLibrary(handle);
#else
    void* handle = dlopen(name.c_str(), RTLD_NOW);
    if (handle)
        dlclose(handle);
#endif
    return handle != nullptr;
}

#ifdef _WIN32
// The search path of this process for as long as it lives.
class ScopedSearchPath {
public:
    explicit ScopedSearchPath(const std::string& path) : previous_(std::getenv("PATH")) {
        SetEnvironmentVariableA("PATH", path.c_str());
    }
    ~ScopedSearchPath() { SetEnvironmentVariableA("PATH", previous_.c_str()); }
    ScopedSearchPath(const ScopedSearchPath&) = delete;
    ScopedSearchPath& operator=(const ScopedSearchPath&) = delete;

private:
    std::string previous_;
};
#endif

// A new, empty folder for as long as it lives.
class ScopedFolder {
public:
    explicit ScopedFolder(const char* name) : path_(fs::path(faketoken::programFolder()) / name) {
        fs::remove_all(path_);
        fs::create_directory(path_);
    }
    ~ScopedFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ScopedFolder(const ScopedFolder&) = delete;
    ScopedFolder& operator=(const ScopedFolder&) = delete;

    const fs::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    fs::path path_;
};

// The reason that the parent of the error gives.
std::wstring reasonForNotLoading(const std::string& path) {
    const auto error = cryptokiErrorOf([&] {
        const CkLibrary library = Libraries::instance().load(path);
        Libraries::instance().unload(library);
    });
    if (!error || !error->parent()) {
        ADD_FAILURE() << "no reason";
        return {};
    }
    EXPECT_EQ(paramOf(*error, L"CRYPTOKY_ERROR_CODE"), L"5");
    EXPECT_EQ(error->params().size(), 1u);
    EXPECT_STREQ(error->parent()->what(), "ModuleNotLoaded");
    return paramOf(*error->parent(), L"ERROR");
}

TEST(ModuleSearch, FindsABareNameInTheProgramsDirectory) {
    const ScopedFolder elsewhere("elsewhere");
    const ScopedCurrentPath current(elsewhere.path());
    const ScopedLibrary byPath(modulePath());
    const ScopedLibrary byName(fileNameOf("faketoken"));
    EXPECT_EQ(static_cast<const CkLibrary&>(byPath), static_cast<const CkLibrary&>(byName));
}

TEST(ModuleSearch, MakesARelativePathAbsolute) {
    const ScopedCurrentPath current(faketoken::programFolder());
    const ScopedLibrary byPath(modulePath());
    const ScopedLibrary relative("./" + fileNameOf("faketoken"));
    EXPECT_EQ(static_cast<const CkLibrary&>(byPath), static_cast<const CkLibrary&>(relative));
}

TEST(ModuleSearch, DoesNotFindABareNameInTheCurrentDirectory) {
    const ScopedFolder trap("trap");
    const std::string name = fileNameOf("trapped");
    fs::copy_file(modulePath(), trap.file(name));
    const ScopedCurrentPath current(trap.path());
#ifdef _WIN32
    ASSERT_TRUE(systemFinds(name));
    EXPECT_EQ(reasonForNotLoading(name), notFound);
#else
    EXPECT_EQ(reasonForNotLoading(name), L"no such file");
#endif
    EXPECT_FALSE(faketoken::isLoaded(trap.file(name)));
}

TEST(ModuleSearch, DoesNotFindABareNameInTheSystemsSearchPath) {
    const std::string name = fileNameOf("plantedmodule");
#ifdef _WIN32
    const ScopedSearchPath searchPath(plantedFolder());
    ASSERT_TRUE(systemFinds(name));
    EXPECT_EQ(reasonForNotLoading(name), notFound);
#else
    ASSERT_TRUE(systemFinds(name)) << "LD_LIBRARY_PATH must name " << plantedFolder();
    EXPECT_EQ(reasonForNotLoading(name), L"no such file");
#endif
}

TEST(ModuleSearch, SaysWhatTheSystemSaysAboutAFileThatIsNotThere) {
    const std::string path = modulePath("nosuchmodule");
    const std::wstring reason = reasonForNotLoading(path);
#ifdef _WIN32
    EXPECT_EQ(reason, notFound);
#else
    EXPECT_NE(reason.find(L"No such file"), std::wstring::npos) << reason.c_str();
#endif
}

TEST(ModuleSearch, NamesThePathAsItWasGiven) {
    const auto error = cryptokiErrorOf([] { Libraries::instance().load("no/such/module.dll"); });
    ASSERT_TRUE(error && error->parent());
    EXPECT_EQ(paramOf(*error->parent(), L"MODULE"), L"no/such/module.dll");
}

TEST(ModuleSearch, RefusesAFileThatIsNoLibrary) {
    const ScopedFolder folder("nolibrary");
    const std::string path = folder.file(fileNameOf("text"));
    std::ofstream(path) << "This is no library.\n";
    const std::wstring reason = reasonForNotLoading(path);
#ifdef _WIN32
    EXPECT_EQ(reason, L"193"); // ERROR_BAD_EXE_FORMAT
#else
    EXPECT_NE(reason.find(L"file too short"), std::wstring::npos) << reason.c_str();
#endif
}

TEST(ModuleSearch, RefusesADirectory) {
    EXPECT_FALSE(reasonForNotLoading(faketoken::programFolder()).empty());
}

TEST(ModuleSearch, RefusesAnEmptyPathAndOneWithAZeroInIt) {
    EXPECT_FALSE(reasonForNotLoading("").empty());
    EXPECT_FALSE(reasonForNotLoading(modulePath() + std::string("\0.dll", 5)).empty());
    EXPECT_FALSE(faketoken::isLoaded(modulePath()));
}

TEST(ModuleSearch, RefusesAPathOfMoreCharactersThanAPathCanHave) {
    EXPECT_FALSE(reasonForNotLoading(std::string(100'000, 'x')).empty());
    EXPECT_FALSE(
        reasonForNotLoading(faketoken::programFolder() + std::string(100'000, 'x')).empty());
}

#ifdef _WIN32

TEST(ModuleSearch, GivesANameWithoutAnEndingTheOneOfLibraries) {
    const ScopedLibrary byPath(modulePath());
    const ScopedLibrary byName("faketoken");
    EXPECT_EQ(static_cast<const CkLibrary&>(byPath), static_cast<const CkLibrary&>(byName));
}

TEST(ModuleSearch, FindsABareNameInTheSystemsDirectory) {
    EXPECT_EQ(reasonForNotLoading("version.dll"), L"C_GetFunctionList is missing");
}

TEST(ModuleSearch, TakesSlashesForBackslashes) {
    std::string path = modulePath();
    std::replace(path.begin(), path.end(), '\\', '/');
    const ScopedLibrary byPath(modulePath());
    const ScopedLibrary bySlashes(path);
    EXPECT_EQ(static_cast<const CkLibrary&>(byPath), static_cast<const CkLibrary&>(bySlashes));
}

TEST(ModuleSearch, DoesNotFindWhatAModuleNeedsInTheCurrentDirectoryOrTheSearchPath) {
    const ScopedCurrentPath current(plantedFolder());
    const ScopedSearchPath searchPath(plantedFolder());
    ASSERT_TRUE(systemFinds(modulePath("needslibrary")));
    EXPECT_EQ(reasonForNotLoading(modulePath("needslibrary")), notFound);
}

TEST(ModuleSearch, FindsWhatAModuleNeedsInTheModulesOwnDirectory) {
    const ScopedFolder folder("together");
    fs::copy_file(modulePath("needslibrary"), folder.file("needslibrary.dll"));
    fs::copy_file(fs::path(plantedFolder()) / "plantedlibrary.dll",
                  folder.file("plantedlibrary.dll"));
    EXPECT_EQ(reasonForNotLoading(folder.file("needslibrary.dll")),
              L"C_GetFunctionList is missing");
}

#endif

} // namespace
