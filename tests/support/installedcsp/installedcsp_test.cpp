// Providers that are installed for a test, as CryptoAPI lists them.
#include "installedcsp.h"

#include <windows.h>

#include <wincrypt.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <vector>

namespace testsupport {
namespace {

constexpr wchar_t providers[] = L"Software\\Microsoft\\Cryptography\\Defaults\\Provider\\";

std::ptrdiff_t timesListed(const std::wstring& csp) {
    std::ptrdiff_t times = 0;
    DWORD type = 0;
    DWORD size = 0;
    for (DWORD i = 0; CryptEnumProvidersW(i, nullptr, 0, &type, nullptr, &size); ++i) {
        std::vector<wchar_t> name(size);
        if (CryptEnumProvidersW(i, nullptr, 0, &type, name.data(), &size) && name.data() == csp) {
            EXPECT_EQ(type, DWORD{PROV_RSA_FULL});
            ++times;
        }
    }
    return times;
}

std::wstring ownName() {
    return L"Test CSP of process " + std::to_wstring(GetCurrentProcessId());
}

TEST(InstalledCsp, IsListedAsLongAsItLives) {
    {
        const InstalledCsp csp(ownName());
        EXPECT_EQ(csp.name(), ownName());
        EXPECT_EQ(timesListed(ownName()), 1);
    }
    EXPECT_EQ(timesListed(ownName()), 0);
}

TEST(InstalledCsp, StaysUntilTheLastOfItsNameGoes) {
    std::optional<InstalledCsp> first(ownName());
    {
        const InstalledCsp second(ownName());
        EXPECT_EQ(timesListed(ownName()), 1);
        first.reset();
        EXPECT_EQ(timesListed(ownName()), 1);
    }
    EXPECT_EQ(timesListed(ownName()), 0);
}

TEST(InstalledCsp, LeavesOneAloneThatOthersInstalled) {
    const std::wstring path = providers + ownName();
    const DWORD type = PROV_RSA_FULL;
    ASSERT_EQ(
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, path.c_str(), L"Type", REG_DWORD, &type, sizeof type),
        ERROR_SUCCESS);
    { const InstalledCsp csp(ownName()); }
    EXPECT_EQ(timesListed(ownName()), 1);
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
}

TEST(InstalledCsp, RefusesANameThatCannotBeRegistered) {
    EXPECT_THROW(InstalledCsp(std::wstring(300, L'x')), std::runtime_error);
}

} // namespace
} // namespace testsupport
