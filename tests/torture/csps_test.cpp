// Listing the installed CSPs, once for every call of Windows that can fail and for every
// allocation.
#include "certstorehelper.h"

#include "libraryallocations.h"
#include "outcome.h"
#include "windowserrors.h"

#include "installedcsp.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace torture {
namespace {

using pkcs11::certstoreupdater::CertStoreHelper;

class CspListingFailure : public testing::Test {
protected:
    Outcome list() {
        names.reset();
        return outcomeOf([&] { names = CertStoreHelper::listCSPs(); });
    }

    const testsupport::InstalledCsp one{L"Torture CSP " + std::to_wstring(GetCurrentProcessId())};
    const testsupport::InstalledCsp other{L"Torture CSP, the other " +
                                          std::to_wstring(GetCurrentProcessId())};
    WindowsCalls windows;
    std::unique_ptr<std::vector<std::wstring>> names;
};

TEST_F(CspListingFailure, EndsTheListOrIsReportedIfANameWasPromised) {
    Tally tally("Windows calls of listing the CSPs");
    ASSERT_EQ(list(), success);
    const std::vector<std::wstring> all = *names;
    const std::vector<WindowsCall> calls = windows.calls();
    EXPECT_EQ(calls.size(), 2 * all.size() + 1);
    failEachCall(tally, calls, [&](std::size_t n, DWORD error) {
        windows.begin(n, error);
        const Outcome outcome = list();
        if (calls[n - 1].asksSize) {
            EXPECT_EQ(outcome, success);
            const auto last = all.begin() + static_cast<std::ptrdiff_t>(n / 2);
            EXPECT_EQ(*names, std::vector<std::wstring>(all.begin(), last));
        } else {
            EXPECT_EQ(outcome, (Outcome{"CertStoreUpdaterError_GetCspNameFailed", {}, {}}));
        }
        windows.begin();
        EXPECT_EQ(list(), success);
        EXPECT_EQ(*names, all);
    });
}

#if defined(__MINGW64__)
TEST_F(CspListingFailure, OfEachAllocationEndsItAndLosesNothing) {
    Tally tally("Allocations of listing the CSPs");
    LibraryAllocations allocations;
    allocations.begin();
    ASSERT_EQ(list(), success);
    const std::vector<std::wstring> all = *names;
    names.reset();
    failEachAllocation(tally, allocations.count(), [&](std::size_t n) {
        const std::size_t live = allocations.live();
        allocations.begin(n);
        EXPECT_EQ(list(), outOfMemory);
        allocations.begin();
        EXPECT_EQ(allocations.live(), live);
        EXPECT_EQ(list(), success);
        EXPECT_EQ(*names, all);
        names.reset();
    });
}
#endif

} // namespace
} // namespace torture
