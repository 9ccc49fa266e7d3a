// CodeVerifier on real files and the system's own verification.
#include "codeverifier.h"

#include "certstoreupdatererror.h"
#include "runningonwine.h"
#include "signedfiles.h"
#include "temporaryfolder.h"
#include "throwsite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <softpub.h>
#include <wintrust.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

using buffer::Buffer;
using pkcs11::certstoreupdater::CertStoreUpdaterError;
using pkcs11::certstoreupdater::CertStoreUpdaterError_InvalidFileSignature;
using pkcs11::certstoreupdater::CodeVerifier;
using signedfiles::folder;
using testsupport::runningOnWine;
using testsupport::TemporaryFolder;

[[maybe_unused]] const auto* const authority =
    ::testing::AddGlobalTestEnvironment(new signedfiles::TrustedAuthority);

Buffer<wchar_t> text(const std::filesystem::path& path) {
    return Buffer<wchar_t>(path.c_str(), path.native().size());
}

void verify(const std::filesystem::path& path) {
    Buffer<wchar_t> argument = text(path);
    CodeVerifier::verify(argument);
}

bool isTrusted(const std::filesystem::path& path) {
    try {
        verify(path);
        return true;
    } catch (const CertStoreUpdaterError_InvalidFileSignature&) {
        return false;
    }
}

/// Whether the file can be opened by somebody who shares it with nobody.
bool isClosed(const std::filesystem::path& path) {
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    CloseHandle(file);
    return true;
}

/// What WinVerifyTrust answers when it is asked directly.
bool isTrustedByTheSystem(const std::filesystem::path& path) {
    WINTRUST_FILE_INFO file{};
    file.cbStruct = sizeof file;
    file.pcwszFilePath = path.c_str();
    WINTRUST_DATA data{};
    data.cbStruct = sizeof data;
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    return WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data) == ERROR_SUCCESS;
}

/// What can carry a signature: a program, a cabinet, an installer.
class CodeVerifierOnFileType : public ::testing::TestWithParam<const char*> {
protected:
    static std::filesystem::path file(const std::string& name) {
        return folder() / (name + "." + GetParam());
    }
};
INSTANTIATE_TEST_SUITE_P(Types, CodeVerifierOnFileType, ::testing::Values("exe", "cab", "msi"),
                         [](const auto& type) { return std::string(type.param); });

TEST_P(CodeVerifierOnFileType, AcceptsASignatureOfATrustedAuthority) {
    EXPECT_NO_THROW(verify(file("signed")));
}

TEST_P(CodeVerifierOnFileType, RefusesASignatureOfAnAuthorityThatNobodyTrusts) {
    EXPECT_THROW(verify(file("stranger")), CertStoreUpdaterError_InvalidFileSignature);
}

TEST_P(CodeVerifierOnFileType, RefusesASignatureThatHasExpired) {
    EXPECT_THROW(verify(file("expired")), CertStoreUpdaterError_InvalidFileSignature);
}

TEST_P(CodeVerifierOnFileType, RefusesASignatureOfSomebodyWhoMayNotSignCode) {
    if (runningOnWine() && isTrustedByTheSystem(file("misused")))
        GTEST_SKIP() << "Wine does not look at what a signer's certificate is for";
    EXPECT_THROW(verify(file("misused")), CertStoreUpdaterError_InvalidFileSignature);
}

TEST_P(CodeVerifierOnFileType, RefusesAFileThatWasChangedAfterSigning) {
    if (runningOnWine() && isTrustedByTheSystem(file("tampered")))
        GTEST_SKIP() << "Wine compares the contents of programs only with their signature";
    EXPECT_THROW(verify(file("tampered")), CertStoreUpdaterError_InvalidFileSignature);
}

TEST_P(CodeVerifierOnFileType, RefusesAFileWithoutASignature) {
    EXPECT_THROW(verify(file("unsigned")), CertStoreUpdaterError_InvalidFileSignature);
}

TEST_P(CodeVerifierOnFileType, LeavesNoFileOpen) {
    EXPECT_NO_THROW(verify(file("signed")));
    EXPECT_TRUE(isClosed(file("signed")));
    EXPECT_THROW(verify(file("stranger")), CertStoreUpdaterError_InvalidFileSignature);
    EXPECT_TRUE(isClosed(file("stranger")));
    EXPECT_THROW(verify(file("unsigned")), CertStoreUpdaterError_InvalidFileSignature);
    EXPECT_TRUE(isClosed(file("unsigned")));
}

TEST(CodeVerifier, RefusesAFileThatIsNotThere) {
    EXPECT_THROW(verify(folder() / "missing.exe"), CertStoreUpdaterError_InvalidFileSignature);
    EXPECT_THROW(verify(folder() / "missing" / "signed.exe"),
                 CertStoreUpdaterError_InvalidFileSignature);
}

TEST(CodeVerifier, RefusesAnEmptyFile) {
    EXPECT_THROW(verify(folder() / "empty.exe"), CertStoreUpdaterError_InvalidFileSignature);
}

TEST(CodeVerifier, RefusesATextFile) {
    EXPECT_THROW(verify(folder() / "text.exe"), CertStoreUpdaterError_InvalidFileSignature);
}

TEST(CodeVerifier, RefusesADirectory) {
    EXPECT_THROW(verify(folder()), CertStoreUpdaterError_InvalidFileSignature);
}

TEST(CodeVerifier, RefusesAnEmptyPath) {
    Buffer<wchar_t> empty(L"");
    EXPECT_THROW(CodeVerifier::verify(empty), CertStoreUpdaterError_InvalidFileSignature);
}

TEST(CodeVerifier, RefusesANullPath) {
    Buffer<wchar_t> null;
    EXPECT_THROW(CodeVerifier::verify(null), CertStoreUpdaterError_InvalidFileSignature);
    EXPECT_TRUE(null.isNull());
}

TEST(CodeVerifier, ReadsThePathUpToItsFirstZero) {
    Buffer<wchar_t> path = text(folder() / "signed.exe");
    path.append(L"\0.not", 5);
    EXPECT_NO_THROW(CodeVerifier::verify(path));
}

TEST(CodeVerifier, DoesNotChangeThePath) {
    Buffer<wchar_t> path = text(folder() / "signed.exe");
    const Buffer<wchar_t> copy = path;
    const wchar_t* const data = path.data();
    CodeVerifier::verify(path);
    EXPECT_EQ(path, text(folder() / "signed.exe"));
    EXPECT_EQ(path.data(), data);
    EXPECT_EQ(path.references(), 2u);
}

TEST(CodeVerifier, FindsFilesWithNamesOutsideAscii) {
    const TemporaryFolder temporary(L"Prüfung \u7F72\u540D \U0001F510");
    const auto signedFile = temporary.path() / L"\u00E9\u0416\U0001F600.exe";
    const auto unsignedFile = temporary.path() / L"\u00E9\u0416\U0001F601.exe";
    std::filesystem::copy_file(folder() / "signed.exe", signedFile);
    std::filesystem::copy_file(folder() / "unsigned.exe", unsignedFile);
    EXPECT_NO_THROW(verify(signedFile));
    EXPECT_THROW(verify(unsignedFile), CertStoreUpdaterError_InvalidFileSignature);
}

TEST(CodeVerifier, ThrowsAnEventWithoutParameters) {
    try {
        verify(folder() / "unsigned.exe");
        FAIL() << "the file was accepted";
    } catch (const korv::GenericEvent& event) {
        EXPECT_STREQ(event.what(), "CertStoreUpdaterError_InvalidFileSignature");
        EXPECT_TRUE(typeid(event) == typeid(CertStoreUpdaterError_InvalidFileSignature));
        EXPECT_EQ(event.file(), Buffer<wchar_t>(L"src\\codeverifier.cpp"));
        testsupport::expectThrowSite(event);
        EXPECT_EQ(event.code(), 0u);
        EXPECT_THAT(event.params(), ::testing::IsEmpty());
        EXPECT_EQ(event.parent(), nullptr);
    }
}

TEST(CodeVerifier, ReportsAllReasonsAlike) {
    const auto eventOf = [](const char* name) {
        try {
            verify(folder() / name);
        } catch (const CertStoreUpdaterError& event) {
            return event.clone();
        }
        return std::unique_ptr<korv::GenericEvent>();
    };
    const auto unsignedEvent = eventOf("unsigned.exe");
    ASSERT_TRUE(unsignedEvent);
    for (const char* name : {"stranger.exe", "expired.exe", "tampered.exe", "missing.exe"}) {
        const auto event = eventOf(name);
        ASSERT_TRUE(event) << name;
        EXPECT_TRUE(event->equal(*unsignedEvent)) << name;
    }
}

TEST(CodeVerifier, ServesSeveralThreadsAtOnce) {
    constexpr int threadCount = 4;
    constexpr int rounds = 8;
    std::atomic<int> trusted{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int i = 0; i != threadCount; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round != rounds; ++round) {
                for (const char* name : {"signed.exe", "signed.cab", "signed.msi"})
                    trusted += isTrusted(folder() / name);
                for (const char* name : {"stranger.exe", "tampered.exe", "unsigned.msi"})
                    refused += !isTrusted(folder() / name);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(trusted, threadCount * rounds * 3);
    EXPECT_EQ(refused, threadCount * rounds * 3);
}

} // namespace
