// Verifying signatures, once for every answer of Windows and for every allocation.
#include "codeverifier.h"

#include "libraryallocations.h"
#include "outcome.h"
#include "tally.h"

#include "importhook.h"
#include "signedfiles.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <softpub.h>
#include <wintrust.h>

#include <filesystem>
#include <iterator>
#include <string>

namespace torture {
namespace {

using buffer::Buffer;
using pkcs11::certstoreupdater::CodeVerifier;

[[maybe_unused]] const auto* const authority =
    ::testing::AddGlobalTestEnvironment(new signedfiles::TrustedAuthority);

const Outcome refused{"CertStoreUpdaterError_InvalidFileSignature", {}, {}};

// What WinVerifyTrust and the policy behind it are documented to answer (Wintrust.h, Softpub.h).
const LONG documentedAnswers[] = {
    TRUST_E_PROVIDER_UNKNOWN,
    TRUST_E_ACTION_UNKNOWN,
    TRUST_E_SUBJECT_FORM_UNKNOWN,
    TRUST_E_SUBJECT_NOT_TRUSTED,
    TRUST_E_NOSIGNATURE,
    TRUST_E_EXPLICIT_DISTRUST,
    TRUST_E_BAD_DIGEST,
    TRUST_E_CERT_SIGNATURE,
    TRUST_E_COUNTER_SIGNER,
    TRUST_E_TIME_STAMP,
    TRUST_E_SYSTEM_ERROR,
    TRUST_E_NO_SIGNER_CERT,
    TRUST_E_BASIC_CONSTRAINTS,
    TRUST_E_FINANCIAL_CRITERIA,
    CERT_E_EXPIRED,
    CERT_E_UNTRUSTEDROOT,
    CERT_E_CHAINING,
    CERT_E_REVOKED,
    CERT_E_REVOCATION_FAILURE,
    CERT_E_WRONG_USAGE,
    CERT_E_UNTRUSTEDTESTROOT,
    CERT_E_UNTRUSTEDCA,
    CRYPT_E_SECURITY_SETTINGS,
    CRYPT_E_FILE_ERROR,
    ERROR_FILE_NOT_FOUND,
    ERROR_ACCESS_DENIED,
};

/// Asks Windows about signed files, counts the state that it leaves and that is released, and may
/// answer in its place.
class SignatureFailure : public testing::Test {
protected:
    SignatureFailure() {
        hook_.replace([this](HWND window, GUID* action, void* argument) {
            const auto* data = static_cast<const WINTRUST_DATA*>(argument);
            const bool releases = data->dwStateAction == WTD_STATEACTION_CLOSE;
            const LONG answer = hook_.original(window, action, argument);
            ++(releases ? released : verified);
            return ++calls == failingCall ? failure : answer;
        });
    }

    Outcome verifying(const char* name) {
        calls = verified = released = 0;
        const std::filesystem::path file = signedfiles::folder() / name;
        Buffer<wchar_t> path(file.c_str(), file.native().size());
        const Outcome outcome = outcomeOf([&] { CodeVerifier::verify(path); });
        EXPECT_EQ(verified, 1u);
        EXPECT_EQ(released, 1u);
        EXPECT_TRUE(isClosed(file));
        return outcome;
    }

    static bool isClosed(const std::filesystem::path& file) {
        const HANDLE handle =
            CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (handle == INVALID_HANDLE_VALUE)
            return false;
        CloseHandle(handle);
        return true;
    }

    static constexpr char trusted[] = "signed.exe";
    static constexpr char untrusted[] = "stranger.exe";
    std::size_t failingCall = 0;
    LONG failure = ERROR_SUCCESS;
    std::size_t calls = 0;
    std::size_t verified = 0;
    std::size_t released = 0;

private:
    testsupport::ImportHook<LONG(HWND, GUID*, void*)> hook_{
        GetModuleHandleW(L"certstoreupdater.dll"), "wintrust.dll", "WinVerifyTrust"};
};

TEST_F(SignatureFailure, OfTheCheckIsReportedAndOfTheReleaseSwallowed) {
    Tally tally("Windows calls of verifying a signature");
    for (failingCall = 1; failingCall <= 2 && tally.goesOn(); ++failingCall) {
        tally.addCall("WinVerifyTrust", std::size(documentedAnswers));
        for (const LONG answer : documentedAnswers) {
            failure = answer;
            tally.run("call " + std::to_string(failingCall) + " answers " + std::to_string(answer),
                      [&] {
                          EXPECT_EQ(verifying(trusted), failingCall == 1 ? refused : success);
                          EXPECT_EQ(verifying(untrusted), refused);
                      });
        }
    }
    failingCall = 0;
    EXPECT_EQ(verifying(trusted), success);
}

#if defined(__MINGW64__)
TEST_F(SignatureFailure, OfEachAllocationNeverMakesAFileTrusted) {
    Tally tally("Allocations of verifying a signature");
    LibraryAllocations allocations;
    EXPECT_EQ(verifying(trusted), success);
    EXPECT_EQ(allocations.count(), 0u) << "nothing that could fail for a trusted file";

    allocations.begin();
    EXPECT_EQ(verifying(untrusted), refused);
    const std::size_t count = allocations.count();
    EXPECT_GT(count, 0u);
    failEachAllocation(tally, count, [&](std::size_t n) {
        const std::size_t live = allocations.live();
        allocations.begin(n);
        EXPECT_EQ(verifying(untrusted), outOfMemory);
        EXPECT_EQ(allocations.live(), live);
        allocations.begin();
        EXPECT_EQ(verifying(untrusted), refused);
    });
}
#endif

} // namespace
} // namespace torture
