// Exit codes and what is said with them.
#include "failures.h"

#include "asn1error.h"
#include "buffererror.h"
#include "certstoreupdatererror.h"
#include "makeevent.h"
#include "pkcs11error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace updater {
namespace {

using namespace pkcs11::certstoreupdater;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Kind = Activity::Kind;

constexpr wchar_t file[] = L"tests\\app\\failures_test.cpp";

Failure cryptoki(Kind kind, unsigned long code) {
    return explain({kind, L"C:\\token.dll"}, pkcs11::cryptokiError(file, code));
}

struct CodeOfAnswer {
    Kind kind;
    unsigned long answer;
    ExitCode code;
};

class FailureOfTheToken : public testing::TestWithParam<CodeOfAnswer> {};

TEST_P(FailureOfTheToken, HasItsExitCodeAndShowsTheAnswer) {
    const Failure failure = cryptoki(GetParam().kind, GetParam().answer);
    EXPECT_EQ(failure.code(), GetParam().code);
    EXPECT_THAT(failure.what(), EndsWith(" (Pkcs11Error_CryptokiError: CRYPTOKY_ERROR_CODE=" +
                                         std::to_string(GetParam().answer) + ")"));
    EXPECT_THAT(failure.what(), Not(HasSubstr("\n")));
}

INSTANTIATE_TEST_SUITE_P(Answers, FailureOfTheToken,
                         testing::Values(CodeOfAnswer{Kind::loadModule, 0x05, ExitCode::module},
                                         CodeOfAnswer{Kind::loadModule, 0x30, ExitCode::module},
                                         CodeOfAnswer{Kind::loadModule, 0xA0, ExitCode::module},
                                         CodeOfAnswer{Kind::logIn, 0xA0, ExitCode::pinRefused},
                                         CodeOfAnswer{Kind::logIn, 0xA1, ExitCode::pinRefused},
                                         CodeOfAnswer{Kind::logIn, 0xA2, ExitCode::pinRefused},
                                         CodeOfAnswer{Kind::logIn, 0xA3, ExitCode::pinRefused},
                                         CodeOfAnswer{Kind::logIn, 0xA4, ExitCode::pinRefused},
                                         CodeOfAnswer{Kind::logIn, 0x9F, ExitCode::token},
                                         CodeOfAnswer{Kind::logIn, 0xA5, ExitCode::token},
                                         CodeOfAnswer{Kind::logIn, 0x102, ExitCode::tokenAbsent},
                                         CodeOfAnswer{Kind::logIn, 0xE0, ExitCode::tokenAbsent},
                                         CodeOfAnswer{Kind::readToken, 0x32, ExitCode::tokenAbsent},
                                         CodeOfAnswer{Kind::readToken, 0xE1, ExitCode::tokenAbsent},
                                         CodeOfAnswer{Kind::readToken, 0x13, ExitCode::token},
                                         CodeOfAnswer{Kind::readToken, 0x8000'0001,
                                                      ExitCode::token},
                                         CodeOfAnswer{Kind::unloadModule, 0x05, ExitCode::token}));

TEST(FailureOfAPin, SaysHowToKeepTheTokenFromLocking) {
    EXPECT_THAT(cryptoki(Kind::logIn, 0xA0).what(),
                AllOf(HasSubstr("tried once"), HasSubstr("locks after a few wrong ones")));
}

TEST(FailureOfAPin, SaysThatALockedPinIsLocked) {
    EXPECT_THAT(cryptoki(Kind::logIn, 0xA4).what(), HasSubstr("the PIN is locked"));
}

TEST(FailureOfTheTokensAnswer, NamesItAsTheStandardDoes) {
    EXPECT_THAT(cryptoki(Kind::readToken, 0x30).what(), HasSubstr("(CKR_DEVICE_ERROR)"));
    EXPECT_THAT(cryptoki(Kind::readToken, 0x8000'00AB).what(), HasSubstr("answer 0x800000AB"));
}

TEST(FailureOfAModuleFile, SaysWhyAndShowsTheCause) {
    korv::GenericEvent cause("ModuleNotLoaded", file, 1, 0);
    cause.setParam(L"MODULE", L"C:\\token.dll");
    cause.setParam(L"ERROR", L"126");
    const Failure failure =
        explain({Kind::loadModule, L"C:\\token.dll"}, pkcs11::cryptokiError(file, 5, cause));
    EXPECT_EQ(failure.code(), ExitCode::module);
    EXPECT_THAT(failure.what(),
                AllOf(HasSubstr("the module \"C:\\token.dll\" cannot be loaded: "),
                      HasSubstr("(error 126); check its path"),
                      EndsWith("(Pkcs11Error_CryptokiError: CRYPTOKY_ERROR_CODE=5; because of "
                               "ModuleNotLoaded: MODULE=C:\\token.dll, ERROR=126)")));
}

TEST(FailureOfAModuleFile, SpeaksOfItWhereTheSystemLeavesTheNameOpen) {
    korv::GenericEvent cause("ModuleNotLoaded", file, 1, 0);
    cause.setParam(L"ERROR", L"193");
    const Failure failure =
        explain({Kind::loadModule, L"C:\\token.dll"}, pkcs11::cryptokiError(file, 5, cause));
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("(error 193)"), Not(HasSubstr("%1"))));
}

TEST(FailureOfALostSession, IsToldFromOtherAnswersOfTheToken) {
    for (const unsigned long lost : {0xB0UL, 0xB3UL, 0x101UL})
        EXPECT_TRUE(meansLostSession(pkcs11::cryptokiError(file, lost))) << lost;
    for (const unsigned long other : {0x05UL, 0x30UL, 0x32UL, 0xA0UL, 0xE0UL})
        EXPECT_FALSE(meansLostSession(pkcs11::cryptokiError(file, other))) << other;
    EXPECT_FALSE(meansLostSession(korv::makeEvent<CertStoreUpdaterError_OpenSystemStore>(file)));
}

template <class Event>
ExitCode codeOf(Kind kind) {
    return explain({kind, L"subject"}, korv::makeEvent<Event>(file)).code();
}

TEST(FailureOfALibraryError, HasTheExitCodeOfItsFamily) {
    EXPECT_EQ(codeOf<CertStoreUpdaterError_TokenNotPresent>(Kind::loadModule),
              ExitCode::tokenAbsent);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_TokenNotInitialized>(Kind::logIn),
              ExitCode::tokenAbsent);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_OpenSystemStore>(Kind::openStore), ExitCode::store);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_GetCertContextPropertyFailed>(Kind::readStore),
              ExitCode::store);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_AddCertificateToStoreFailed>(Kind::add),
              ExitCode::store);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_SetKeyProviderInfoFailed>(Kind::add), ExitCode::store);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_DeleteCertificateFailed>(Kind::remove), ExitCode::store);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_DuplicateCertificateMismatch>(Kind::clean),
              ExitCode::store);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_InvalidFileSignature>(Kind::loadModule),
              ExitCode::signature);
    EXPECT_EQ(codeOf<CertStoreUpdaterError_InvalidConfiguration>(Kind::openStore),
              ExitCode::permissions);
    EXPECT_EQ(codeOf<asn1::QuorError_Asn1_Decode>(Kind::readToken), ExitCode::certificate);
    EXPECT_EQ(codeOf<asn1::QuorError_Asn1_Decode>(Kind::readStore), ExitCode::certificate);
    EXPECT_EQ(codeOf<asn1::QuorError_Asn1_Decode>(Kind::add), ExitCode::certificate);
    EXPECT_EQ(codeOf<buffer::BufferError_InvalidEncodingUnit>(Kind::readToken),
              ExitCode::certificate);
    EXPECT_EQ(codeOf<buffer::BufferError_InvalidEncodingUnit>(Kind::readStore), ExitCode::store);
    EXPECT_EQ(codeOf<buffer::BufferError_InvalidEncodingUnit>(Kind::clean), ExitCode::store);
}

TEST(FailureOfAStore, NamesItAndShowsTheParametersInOrder) {
    const Failure failure = explain({Kind::add, L"\"CN=Anna\" (A)"},
                                    korv::makeEvent<CertStoreUpdaterError_SetKeyProviderInfoFailed>(
                                        file, {{L"CSP", L"Some CSP"}, {L"CONTAINER", L"A"}}));
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("\"CN=Anna\" (A) cannot be registered"),
                                      EndsWith("(CertStoreUpdaterError_SetKeyProviderInfoFailed: "
                                               "CSP=Some CSP, CONTAINER=A)")));
}

TEST(During, LetsResultsThroughAndTurnsEventsIntoFailures) {
    EXPECT_EQ(during({Kind::readStore, L"MY"}, [] { return 7; }), 7);
    EXPECT_THROW(during({Kind::readStore, L"MY"},
                        [] { throw korv::makeEvent<CertStoreUpdaterError_OpenSystemStore>(file); }),
                 Failure);
}

TEST(ExitCodeHelp, ListsEveryCode) {
    for (int code = 0; code <= 11; ++code)
        EXPECT_THAT(exitCodeHelp(),
                    HasSubstr((code < 10 ? "\n   " : "\n  ") + std::to_string(code) + "  "));
    EXPECT_THAT(exitCodeHelp(), HasSubstr("\n  0xC000013A  ")) << "by which the system ends it";
}

} // namespace
} // namespace updater
