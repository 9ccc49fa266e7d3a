// What CodeVerifier asks Windows, read from the calls.
#include "codeverifier.h"

#include "certstoreupdatererror.h"
#include "importhook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <softpub.h>
#include <wintrust.h>

#include <string>
#include <vector>

namespace {

using buffer::Buffer;
using pkcs11::certstoreupdater::CertStoreUpdaterError_InvalidFileSignature;
using pkcs11::certstoreupdater::CodeVerifier;

/// A call of WinVerifyTrust with what its arguments pointed at.
struct TrustCall {
    HWND window;
    GUID action;
    const void* dataAddress;
    WINTRUST_DATA data;
    WINTRUST_FILE_INFO file;
    std::wstring path;
};

/// Records the calls and answers them: the n-th by the n-th of `results`. The first call leaves
/// `stateData` behind.
class CodeVerifierCalls : public ::testing::Test {
protected:
    CodeVerifierCalls() {
        hook_.replace([this](HWND window, GUID* action, void* argument) {
            auto* data = static_cast<WINTRUST_DATA*>(argument);
            calls.push_back(
                {window, *action, data, *data, *data->pFile, data->pFile->pcwszFilePath});
            if (calls.size() == 1)
                data->hWVTStateData = stateData;
            return calls.size() <= results.size() ? results[calls.size() - 1] : LONG{0};
        });
    }

    void* const stateData = &hook_;
    std::vector<LONG> results;
    std::vector<TrustCall> calls;

private:
    testsupport::ImportHook<LONG(HWND, GUID*, void*)> hook_{
        GetModuleHandleW(L"certstoreupdater.dll"), "wintrust.dll", "WinVerifyTrust"};
};

void verify(const wchar_t* path) {
    Buffer<wchar_t> argument(path);
    CodeVerifier::verify(argument);
}

TEST_F(CodeVerifierCalls, AreACheckAndARelease) {
    verify(L"C:\\some\\module.dll");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].data.dwStateAction, DWORD{WTD_STATEACTION_VERIFY});
    EXPECT_EQ(calls[1].data.dwStateAction, DWORD{WTD_STATEACTION_CLOSE});
}

TEST_F(CodeVerifierCalls, NameThePathAndNothingElseOfTheFile) {
    verify(L"C:\\some\\m\u00F6dule \U0001F600.dll");
    ASSERT_EQ(calls.size(), 2u);
    for (const TrustCall& call : calls) {
        EXPECT_EQ(call.file.cbStruct, 32u);
        EXPECT_EQ(call.path, L"C:\\some\\m\u00F6dule \U0001F600.dll");
        EXPECT_EQ(call.file.hFile, nullptr);
        EXPECT_EQ(call.file.pgKnownSubject, nullptr);
    }
}

TEST_F(CodeVerifierCalls, AskForTheGenericPolicyWithoutAWindow) {
    verify(L"C:\\some\\module.dll");
    ASSERT_EQ(calls.size(), 2u);
    const GUID genericVerify2 = {
        0x00AAC56B, 0xCD44, 0x11D0, {0x8C, 0xC2, 0x00, 0xC0, 0x4F, 0xC2, 0x95, 0xEE}};
    for (const TrustCall& call : calls) {
        EXPECT_EQ(call.window, nullptr);
        EXPECT_TRUE(IsEqualGUID(call.action, genericVerify2));
    }
}

TEST_F(CodeVerifierCalls, ShowNoDialogAndCheckNoRevocation) {
    verify(L"C:\\some\\module.dll");
    ASSERT_EQ(calls.size(), 2u);
    for (const TrustCall& call : calls) {
        EXPECT_EQ(call.data.cbStruct, 80u);
        EXPECT_EQ(call.data.pPolicyCallbackData, nullptr);
        EXPECT_EQ(call.data.pSIPClientData, nullptr);
        EXPECT_EQ(call.data.dwUIChoice, 2u);
        EXPECT_EQ(call.data.fdwRevocationChecks, 0u);
        EXPECT_EQ(call.data.dwUnionChoice, 1u);
        EXPECT_EQ(call.data.pwszURLReference, nullptr);
        EXPECT_EQ(call.data.dwProvFlags, 0u);
        EXPECT_EQ(call.data.dwUIContext, 0u);
    }
}

TEST_F(CodeVerifierCalls, ReleaseTheStateThatTheCheckLeft) {
    verify(L"C:\\some\\module.dll");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].data.hWVTStateData, nullptr);
    EXPECT_EQ(calls[1].data.hWVTStateData, stateData);
    EXPECT_EQ(calls[1].dataAddress, calls[0].dataAddress);
}

TEST_F(CodeVerifierCalls, ReleaseTheStateOfAFailedCheckToo) {
    results = {TRUST_E_NOSIGNATURE};
    EXPECT_THROW(verify(L"C:\\some\\module.dll"), CertStoreUpdaterError_InvalidFileSignature);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].data.dwStateAction, DWORD{WTD_STATEACTION_CLOSE});
    EXPECT_EQ(calls[1].data.hWVTStateData, stateData);
}

TEST_F(CodeVerifierCalls, CountAsSuccessWhateverTheReleaseAnswers) {
    results = {ERROR_SUCCESS, TRUST_E_PROVIDER_UNKNOWN};
    EXPECT_NO_THROW(verify(L"C:\\some\\module.dll"));
    EXPECT_EQ(calls.size(), 2u);
}

TEST_F(CodeVerifierCalls, CountAsFailureWhateverTheReleaseAnswers) {
    results = {TRUST_E_BAD_DIGEST, ERROR_SUCCESS};
    EXPECT_THROW(verify(L"C:\\some\\module.dll"), CertStoreUpdaterError_InvalidFileSignature);
    EXPECT_EQ(calls.size(), 2u);
}

TEST_F(CodeVerifierCalls, GetAnEmptyPathForANullBuffer) {
    Buffer<wchar_t> null;
    CodeVerifier::verify(null);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].path, L"");
    EXPECT_EQ(calls[1].path, L"");
}

class CodeVerifierFailure : public CodeVerifierCalls, public ::testing::WithParamInterface<LONG> {};
INSTANTIATE_TEST_SUITE_P(Codes, CodeVerifierFailure,
                         ::testing::Values(TRUST_E_NOSIGNATURE, TRUST_E_BAD_DIGEST,
                                           TRUST_E_SUBJECT_NOT_TRUSTED,
                                           TRUST_E_SUBJECT_FORM_UNKNOWN, TRUST_E_PROVIDER_UNKNOWN,
                                           TRUST_E_ACTION_UNKNOWN, TRUST_E_EXPLICIT_DISTRUST,
                                           CERT_E_EXPIRED, CERT_E_UNTRUSTEDROOT, CERT_E_CHAINING,
                                           CERT_E_REVOKED, CERT_E_WRONG_USAGE,
                                           CRYPT_E_SECURITY_SETTINGS, ERROR_FILE_NOT_FOUND,
                                           ERROR_ACCESS_DENIED, LONG{1}, LONG{-1}));

TEST_P(CodeVerifierFailure, IsAnInvalidSignatureWithoutParameters) {
    results = {GetParam()};
    try {
        verify(L"C:\\some\\module.dll");
        FAIL() << "the file was accepted";
    } catch (const CertStoreUpdaterError_InvalidFileSignature& event) {
        EXPECT_THAT(event.params(), ::testing::IsEmpty());
    }
}

} // namespace
