// An update, once for every call of Windows that can fail and every error that it may leave.
#include "tally.h"
#include "updatetest.h"
#include "windowserrors.h"

#include <wincrypt.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace torture {
namespace {

constexpr DWORD alreadyThere = static_cast<DWORD>(CRYPT_E_EXISTS);

std::wstring friendlyNameOf(const testsupport::StoreEntry& entry) {
    const Bytes& bytes = *entry.friendlyName;
    std::wstring name;
    for (std::size_t i = 0; i + 2 < bytes.size(); i += 2)
        name += static_cast<wchar_t>(bytes[i] | bytes[i + 1] << 8);
    return name;
}

class WindowsFailure : public UpdateTest {
protected:
    std::vector<WindowsCall> callsOfAnUpdate() {
        windows.begin();
        const UpdateRun run = update();
        EXPECT_EQ(run.outcome, success);
        expectAllIsGivenBack(run);
        return windows.calls();
    }

    /// What an update comes to when this call fails with this error.
    Outcome expectedOutcome(const WindowsCall& call, DWORD error) const {
        if (call.function == "CertOpenSystemStoreW")
            return {"CertStoreUpdaterError_OpenSystemStore", {{L"STORE", store.name()}}, {}};
        if (call.function == "CertDuplicateCertificateContext")
            return {"CertStoreUpdaterError_DuplicateCertificatePointerFailed", {}, {}};
        if (call.function == "CertCompareCertificate")
            return {"CertStoreUpdaterError_DuplicateCertificateMismatch", {}, {}};
        if (call.function == "CertDeleteCertificateFromStore" && error != ERROR_CANCELLED)
            return {"CertStoreUpdaterError_DeleteCertificateFailed", {}, {}};
        if (call.function == "CertAddEncodedCertificateToStore" && error != ERROR_CANCELLED &&
            error != alreadyThere)
            return {"CertStoreUpdaterError_AddCertificateToStoreFailed", {}, {}};
        // A length that cannot be read means that the property is absent.
        if (call.function == "CertGetCertificateContextProperty" && !call.asksSize)
            return {"CertStoreUpdaterError_GetCertContextPropertyFailed",
                    {{L"PROPERTY", std::to_wstring(call.property)}},
                    {}};
        if (call.function == "CertSetCertificateContextProperty")
            return outcomeOfSetting(call);
        if (call.function == "GetProcAddress")
            return notLoaded(L"C_GetFunctionList is missing");
        if (call.function == "LoadLibraryExW" || call.function == "MultiByteToWideChar" ||
            call.function == "GetFullPathNameW")
            return notLoaded(std::to_wstring(error));
        // A search without a result, an enumeration at its end, a certificate that the user
        // declines: an update goes on with less.
        return success;
    }

    void expectFailure(std::size_t n, DWORD error) {
        renewToken();
        token->forgetCalls();
        windows.begin(n, error);
        const UpdateRun run = update();
        ASSERT_NE(windows.failedCall(), nullptr);
        EXPECT_EQ(run.outcome, expectedOutcome(*windows.failedCall(), error));
        expectAllIsGivenBack(run);
        if (run.stage <= Stage::opening)
            expectStoreIsUntouched();
        expectStoreCanBeCompleted();
    }

private:
    Outcome notLoaded(const std::wstring& error) const {
        return {
            "Pkcs11Error_CryptokiError",
            {{L"CRYPTOKY_ERROR_CODE", L"5"}},
            {{L"MODULE", std::wstring(modulePath.begin(), modulePath.end())}, {L"ERROR", error}}};
    }

    Outcome outcomeOfSetting(const WindowsCall& call) const {
        const testsupport::StoreEntry& entry = entryOf(call.certificate);
        Outcome outcome{"CertStoreUpdaterError_SetCertKorvaneCspRefFailed", {{L"CSP", csp}}, {}};
        if (call.property == testsupport::korvaneCspRefId)
            return outcome;
        outcome.exception = "CertStoreUpdaterError_SetKeyProviderInfoFailed";
        outcome.params.emplace_back(L"CONTAINER", *entry.keyProvInfo->container);
        if (call.property == CERT_KEY_PROV_INFO_PROP_ID)
            return outcome;
        outcome.exception = "CertStoreUpdaterError_SetCertFriendlyNameFailed";
        outcome.params.emplace_back(L"FRIENDLYNAME", friendlyNameOf(entry));
        return outcome;
    }
};

TEST_F(WindowsFailure, OfEachCallWithEachErrorIsReportedOrSwallowedAndLosesNothing) {
    Tally tally("Windows calls of an update");
    failEachCall(tally, callsOfAnUpdate(),
                 [&](std::size_t n, DWORD error) { expectFailure(n, error); });
    EXPECT_THAT(tally.functions(),
                testing::IsSupersetOf(
                    {"MultiByteToWideChar", "GetFullPathNameW", "LoadLibraryExW", "GetProcAddress",
                     "CertOpenSystemStoreW", "CertEnumCertificatesInStore",
                     "CertGetCertificateContextProperty", "CertDuplicateCertificateContext",
                     "CertCompareCertificate", "CertDeleteCertificateFromStore",
                     "CertFindCertificateInStore", "CertAddEncodedCertificateToStore",
                     "CertSetCertificateContextProperty"}));
    expectAllStatesWereMet();
}

} // namespace
} // namespace torture
