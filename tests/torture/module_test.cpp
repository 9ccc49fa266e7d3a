// Loading a module: by its name alone, and as the first thing that a process asks of the library.
#include "libraryallocations.h"
#include "outcome.h"
#include "pkcs11helper.h"
#include "tally.h"
#include "windowscalls.h"
#include "windowserrors.h"

#include "loadedtoken.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace torture {
namespace {

using pkcs11::certstoreupdater::Pkcs11Helper;

class ModuleFailure : public testing::Test {
protected:
    ~ModuleFailure() override { EXPECT_FALSE(token.release()) << "the module is still loaded"; }

    void expectNothingIsLeft() {
        EXPECT_EQ(token->count("C_Finalize"), token->count("C_Initialize"));
        EXPECT_FALSE(token->initialized);
        EXPECT_EQ(windows.modules.held(), 0u);
        EXPECT_EQ(windows.modules.strays(), 0u);
    }

    Outcome loading(const std::string& file) {
        token->forgetCalls();
        return outcomeOf([&] { const Pkcs11Helper helper(file); });
    }

    const std::string name = faketoken::fileNameOf("faketoken");
    const std::string path = faketoken::modulePath();
    faketoken::LoadedToken token;
    WindowsCalls windows;
};

#if defined(__MINGW64__)
// The first test of the process, so that what the library keeps for ever is made in it.
class ColdStart : public ModuleFailure {};

TEST_F(ColdStart, SurvivesTheFailureOfEachAllocation) {
    Tally tally("Allocations of the first loading of a module");
    LibraryAllocations allocations;
    bool hasFailed = true;
    for (std::size_t n = 1; hasFailed && tally.goesOn(); ++n) {
        windows.begin();
        tally.run("allocation " + std::to_string(n), [&] {
            allocations.begin(n);
            const Outcome outcome = loading(path);
            hasFailed = allocations.hasFailed();
            EXPECT_EQ(outcome, hasFailed ? outOfMemory : success);
            expectNothingIsLeft();
        });
        if (hasFailed)
            tally.addAllocation();
        else
            EXPECT_GT(n, 5u);
    }
}
#endif

class LoadingByName : public ModuleFailure {
protected:
    Outcome notLoaded(const std::wstring& error) const {
        return {"Pkcs11Error_CryptokiError",
                {{L"CRYPTOKY_ERROR_CODE", L"5"}},
                {{L"MODULE", std::wstring(name.begin(), name.end())}, {L"ERROR", error}}};
    }

    Outcome expectedOutcome(const WindowsCall& call, DWORD error) const {
        // The module lies beside the program; the system's directory is not needed.
        if (call.function == "GetSystemDirectoryW")
            return success;
        if (call.function == "GetModuleFileNameW" || call.function == "GetFileAttributesW")
            return notLoaded(std::to_wstring(ERROR_MOD_NOT_FOUND));
        return notLoaded(call.function == "GetProcAddress" ? L"C_GetFunctionList is missing"
                                                           : std::to_wstring(error));
    }
};

TEST_F(LoadingByName, FailsWithTheErrorOfEachWindowsCall) {
    Tally tally("Windows calls of loading a module by its name");
    windows.begin();
    ASSERT_EQ(loading(name), success);
    const std::vector<WindowsCall> calls = windows.calls();
    failEachCall(tally, calls, [&](std::size_t n, DWORD error) {
        windows.begin(n, error);
        EXPECT_EQ(loading(name), expectedOutcome(calls[n - 1], error));
        expectNothingIsLeft();
        windows.begin();
        EXPECT_EQ(loading(name), success);
    });
}

} // namespace
} // namespace torture
