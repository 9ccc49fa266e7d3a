// What is asked of Windows when a module is loaded, and what happens when Windows refuses.
#include "expectcryptokierror.h"
#include "importhook.h"
#include "libraries.h"
#include "librarytest.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

using faketoken::cryptokiErrorOf;
using faketoken::modulePath;
using faketoken::paramOf;
using faketoken::plantedFolder;
using pkcs11::Libraries;
using pkcs11test::ScopedCurrentPath;
using pkcs11test::ScopedLibrary;
using testsupport::ImportHook;

// The loader is linked into this program: its imports are the program's.
template <class Function>
ImportHook<Function> hook(const char* function) {
    return ImportHook<Function>(GetModuleHandleW(nullptr), "kernel32.dll", function);
}

std::wstring reasonForNotLoading(const std::string& path) {
    const auto error = cryptokiErrorOf([&] { Libraries::instance().load(path); });
    return error && error->parent() ? paramOf(*error->parent(), L"ERROR") : L"no reason";
}

TEST(WindowsLoader, IsToldWhereDependenciesMayComeFrom) {
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    { const ScopedLibrary library; }
    ASSERT_EQ(loading.count(), 1u);
    EXPECT_EQ(loading.argument<1>(1), nullptr);
    EXPECT_EQ(loading.argument<2>(1),
              DWORD{LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32});
}

class WindowsLoaderPath : public testing::TestWithParam<const char*> {};

TEST_P(WindowsLoaderPath, IsAlwaysAbsoluteWithBackslashes) {
    const ScopedCurrentPath current(faketoken::programFolder());
    std::wstring asked;
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    loading.replace([&](LPCWSTR path, HANDLE, DWORD) -> HMODULE {
        asked = path;
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    });
    EXPECT_EQ(reasonForNotLoading(GetParam()), L"126");
    EXPECT_TRUE(fs::path(asked).is_absolute()) << fs::path(asked);
    EXPECT_EQ(asked.find(L'/'), std::wstring::npos) << fs::path(asked);
    EXPECT_EQ(fs::path(asked).filename(), L"faketoken.dll");
}

INSTANTIATE_TEST_SUITE_P(Of, WindowsLoaderPath,
                         testing::Values("faketoken.dll", "faketoken", ".\\faketoken.dll",
                                         "./faketoken.dll", "folder/faketoken.dll",
                                         "C:faketoken.dll", "\\faketoken.dll",
                                         "..\\folder\\.\\faketoken.dll"));

TEST(WindowsLoader, GivesBackWhatItLoaded) {
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    auto freeing = hook<decltype(FreeLibrary)>("FreeLibrary");
    {
        const ScopedLibrary first;
        const ScopedLibrary second;
    }
    EXPECT_EQ(loading.count(), 2u);
    EXPECT_EQ(freeing.count(), 2u);
}

TEST(WindowsLoader, ReportsTheErrorOfWindows) {
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    loading.fail(1, nullptr, ERROR_ACCESS_DENIED);
    EXPECT_EQ(reasonForNotLoading(modulePath()), L"5");
}

TEST(WindowsLoader, ShowsNoDialogAndKeepsTheThreadsErrorMode) {
    const DWORD before = GetThreadErrorMode();
    DWORD during = 0;
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    loading.replace([&](LPCWSTR, HANDLE, DWORD) -> HMODULE {
        during = GetThreadErrorMode();
        return nullptr;
    });
    reasonForNotLoading(modulePath());
    EXPECT_TRUE(during & SEM_FAILCRITICALERRORS);
    EXPECT_EQ(GetThreadErrorMode(), before);
}

TEST(WindowsLoader, IsNotAskedForAPathThatIsNoTextOfTheCodePage) {
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    auto decoding = hook<decltype(MultiByteToWideChar)>("MultiByteToWideChar");
    decoding.fail(1, 0, ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(reasonForNotLoading(modulePath()), L"1113");
    EXPECT_EQ(decoding.argument<0>(1), UINT{CP_ACP});
    EXPECT_EQ(decoding.argument<1>(1), DWORD{MB_ERR_INVALID_CHARS});
    EXPECT_EQ(loading.count(), 0u);
}

TEST(WindowsLoader, ReportsWhyAPathCannotBeDecoded) {
    auto decoding = hook<decltype(MultiByteToWideChar)>("MultiByteToWideChar");
    decoding.fail(2, 0, ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(reasonForNotLoading(modulePath()), L"1113");
}

TEST(WindowsLoader, ReportsWhyAPathHasNoAbsoluteForm) {
    auto making = hook<decltype(GetFullPathNameW)>("GetFullPathNameW");
    making.fail(1, 0, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(reasonForNotLoading(modulePath()), L"8");
}

// Without the directory in front a name would be looked for in the current directory.
TEST(WindowsLoader, DoesNotTakeTheCurrentDirectoryForOneThatWindowsDoesNotTell) {
    const ScopedCurrentPath current(plantedFolder());
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    auto program = hook<decltype(GetModuleFileNameW)>("GetModuleFileNameW");
    auto system = hook<decltype(GetSystemDirectoryW)>("GetSystemDirectoryW");
    program.fail(1, 0, ERROR_GEN_FAILURE);
    system.fail(1, 0, ERROR_GEN_FAILURE);
    EXPECT_EQ(reasonForNotLoading("plantedmodule.dll"), L"126");
    EXPECT_EQ(loading.count(), 0u);
}

TEST(WindowsLoader, CopesWithAProgramInADirectoryOfALongName) {
    const std::wstring folder = L"C:\\" + std::wstring(1000, L'x');
    const std::wstring programPath = folder + L"\\program.exe";
    auto program = hook<decltype(GetModuleFileNameW)>("GetModuleFileNameW");
    program.replace([&](HMODULE, LPWSTR buffer, DWORD capacity) -> DWORD {
        const DWORD written = static_cast<DWORD>(programPath.size()) < capacity
                                  ? static_cast<DWORD>(programPath.size())
                                  : capacity;
        std::memcpy(buffer, programPath.data(), written * sizeof(wchar_t));
        return written;
    });
    std::wstring looked;
    auto attributes = hook<decltype(GetFileAttributesW)>("GetFileAttributesW");
    attributes.onCall(1, [&](LPCWSTR path) -> DWORD {
        looked = path;
        return FILE_ATTRIBUTE_NORMAL;
    });
    std::wstring asked;
    auto loading = hook<decltype(LoadLibraryExW)>("LoadLibraryExW");
    loading.replace([&](LPCWSTR path, HANDLE, DWORD) -> HMODULE {
        asked = path;
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    });
    EXPECT_EQ(reasonForNotLoading("module.dll"), L"126");
    EXPECT_EQ(looked, folder + L"\\module.dll");
    EXPECT_EQ(asked, looked);
}

TEST(WindowsLoader, TakesAFolderForNoModule) {
    auto attributes = hook<decltype(GetFileAttributesW)>("GetFileAttributesW");
    attributes.replace([](LPCWSTR) -> DWORD { return FILE_ATTRIBUTE_DIRECTORY; });
    EXPECT_EQ(reasonForNotLoading("faketoken.dll"), L"126");
    EXPECT_EQ(attributes.count(), 2u);
}

// Bytes of the active code page for a name that is not ASCII, whatever that code page is.
std::string nonAsciiName() {
    for (const wchar_t* name : {L"\u00FC", L"\u0416", L"\u6F22"}) {
        char bytes[8];
        BOOL isReplaced = FALSE;
        const bool isUtf8 = GetACP() == CP_UTF8;
        const int size = WideCharToMultiByte(CP_ACP, 0, name, 1, bytes, 8, nullptr,
                                             isUtf8 ? nullptr : &isReplaced);
        if (size > 0 && !isReplaced)
            return std::string(bytes, static_cast<std::size_t>(size));
    }
    return {};
}

TEST(WindowsLoader, LoadsAModuleWithANameInTheActiveCodePage) {
    const std::string name = nonAsciiName();
    ASSERT_FALSE(name.empty());
    const std::string path = faketoken::programFolder() + "module " + name + ".dll";
    ASSERT_TRUE(CopyFileA(modulePath().c_str(), path.c_str(), FALSE));
    {
        const ScopedLibrary library(path);
        EXPECT_TRUE(faketoken::isLoaded(path));
    }
    EXPECT_FALSE(faketoken::isLoaded(path));
    EXPECT_TRUE(DeleteFileA(path.c_str()));
}

// Names that no file can have are not looked for at all.
TEST(WindowsLoader, RefusesNamesThatAreNone) {
    EXPECT_EQ(reasonForNotLoading(""), L"123");
    EXPECT_EQ(reasonForNotLoading(std::string(0x8000, 'a')), L"123");
}

// With its folder the longest name is too long for a path: Windows may say that (206,
// ERROR_FILENAME_EXCED_RANGE) where Wine finds no such module (126).
TEST(WindowsLoader, LooksForTheShortestAndTheLongestName) {
    EXPECT_EQ(reasonForNotLoading("x"), L"126");
    EXPECT_THAT(reasonForNotLoading(std::string(0x7FFF, 'a')), testing::AnyOf(L"126", L"206"));
}

} // namespace
