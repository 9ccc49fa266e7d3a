// Modules and tokens that cannot be used: each ends with its exit code and one line, the store is
// as it was, and the PIN was tried once at most.
#include "updatertest.h"

#include <algorithm>

namespace updater {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class BadToken : public UpdaterTest {
protected:
    BadToken() { store.add(before); }

    /// Runs sync and expects one line on standard error, no data, and the store as it was.
    void expectFailure(int exitCode, const testing::Matcher<const std::string&>& line) {
        const Outcome outcome = run(L"sync");
        EXPECT_THAT(outcome, EndsWithCode(exitCode, line));
        EXPECT_THAT(outcome.errors, StartsWith("certstoreupdate: "));
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(store.entries(), testing::ElementsAre(before));
    }

    const StoreEntry before = registered(numbered(99), L"CKAIDHEX:99", L"registered before");
};

TEST_F(BadToken, IsAModuleThatIsNotThere) {
    module = folder.path().wstring() + L"\\none.dll";
    expectFailure(
        3, AllOf(HasSubstr("cannot be opened"), HasSubstr("none.dll"), HasSubstr("error 2)")));
}

TEST_F(BadToken, IsAModuleThatIsNoLibrary) {
    module = folder.write("text.dll", "This is no library.").wstring();
    expectFailure(3,
                  AllOf(HasSubstr("cannot be loaded"), HasSubstr("text.dll"),
                        HasSubstr("(Pkcs11Error_CryptokiError: CRYPTOKY_ERROR_CODE=5; because of "
                                  "ModuleNotLoaded: ")));
}

TEST_F(BadToken, IsAModuleWithoutAFunctionList) {
    module = testsupport::folderOfThisProgram() + L"nofunctionlist.dll";
    expectFailure(3, HasSubstr("it is no PKCS#11 module, as it has no C_GetFunctionList"));
}

TEST_F(BadToken, IsAModuleThatDoesNotStart) {
    line("fail C_Initialize 1 0x30");
    expectFailure(3, AllOf(HasSubstr("does not start: CKR_DEVICE_ERROR"),
                           EndsWith("(Pkcs11Error_CryptokiError: CRYPTOKY_ERROR_CODE=48)\n")));
}

TEST_F(BadToken, IsAModuleThatIsNamedByAFileNameOfTheCurrentFolder) {
    // What lies in the current folder, as a download might, must not be loaded.
    const auto planted = std::filesystem::path(L"csu-test-planted.dll");
    std::filesystem::copy_file(module, planted, std::filesystem::copy_options::overwrite_existing);
    module = planted.wstring();
    expectFailure(3, HasSubstr("neither beside this program nor in the system's folder"));
    std::filesystem::remove(planted);
    EXPECT_EQ(calls(), "");
}

TEST_F(BadToken, IsAbsent) {
    slot = "slot absent";
    expectFailure(4, AllOf(HasSubstr("no token is present"),
                           EndsWith("(CertStoreUpdaterError_TokenNotPresent)\n")));
    EXPECT_EQ(callsOf("C_Initialize"), 1);
    EXPECT_EQ(callsOf("C_Finalize"), 1);
}

TEST_F(BadToken, HasNoUserPin) {
    slot = "slot flags=0x400";
    expectFailure(4, AllOf(HasSubstr("user PIN has not been set"),
                           EndsWith("(CertStoreUpdaterError_TokenNotInitialized)\n")));
    EXPECT_EQ(callsOf("C_Login"), 0);
}

TEST_F(BadToken, HasAWrongPinWhichIsTriedOnce) {
    pin = L"4321";
    expectFailure(5, AllOf(HasSubstr("the token refused the PIN"), HasSubstr("tried once"),
                           EndsWith("(Pkcs11Error_CryptokiError: CRYPTOKY_ERROR_CODE=160)\n")));
    EXPECT_EQ(callsOf("C_Login"), 1);
    EXPECT_THAT(calls(), HasSubstr("C_Finalize 0"));
}

TEST_F(BadToken, HasALockedPin) {
    line("fail C_Login 1 0xA4");
    expectFailure(5, HasSubstr("the PIN is locked"));
    EXPECT_EQ(callsOf("C_Login"), 1);
}

TEST_F(BadToken, HoldsACertificateThatIsNotDer) {
    certificateWithKey(numbered(1), "01");
    certificateWithKey(testsupport::fromHex("30 03 02 01"), "02");
    expectFailure(6, AllOf(HasSubstr("malformed"), HasSubstr("(QuorError_Asn1_Decode: ")));
}

TEST_F(BadToken, HoldsAnEmptyCertificate) {
    line("certificate value=00 id=01");
    expectFailure(6, HasSubstr("malformed"));
}

TEST_F(BadToken, HoldsALabelThatIsNotUtf8) {
    certificateWithKey(numbered(1), "01", "\xFF");
    expectFailure(6, HasSubstr("BufferError_InvalidEncodingUnit"));
}

struct FailingCall {
    const char* function;
    int exitCode;
};

class FailingFunction : public BadToken, public testing::WithParamInterface<FailingCall> {};

TEST_P(FailingFunction, IsToldAndChangesNothing) {
    certificateWithKey(numbered(1), "01");
    line(std::string("fail ") + GetParam().function + " 1 0x31");
    expectFailure(GetParam().exitCode, EndsWith("CRYPTOKY_ERROR_CODE=49)\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, FailingFunction,
    testing::Values(FailingCall{"C_Initialize", 3}, FailingCall{"C_GetSlotList", 3},
                    FailingCall{"C_GetTokenInfo", 10}, FailingCall{"C_OpenSession", 10},
                    FailingCall{"C_Login", 10}, FailingCall{"C_FindObjectsInit", 10},
                    FailingCall{"C_FindObjects", 10}, FailingCall{"C_FindObjectsFinal", 10},
                    FailingCall{"C_GetAttributeValue", 10}));

TEST_F(UpdaterTest, DoesItsWorkThoughTheModuleDoesNotEndAsItShould) {
    certificateWithKey(numbered(1), "01");
    line("fail C_Finalize 1 0x05");
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(10, HasSubstr("did not end as it should")));
    EXPECT_THAT(outcome.output, StartsWith("added "));
    EXPECT_THAT(store.entries(), testing::SizeIs(1));
}

TEST_F(UpdaterTest, DoesItsWorkThoughASessionDoesNotClose) {
    certificateWithKey(numbered(1), "01");
    line("fail C_CloseSession 1 0x05");
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), testing::SizeIs(1));
}

} // namespace
} // namespace updater
