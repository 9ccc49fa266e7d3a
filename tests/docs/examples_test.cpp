// The examples of the documents, run as a reader would run them.
#include "certbuilder.h"
#include "installedcsp.h"
#include "signedfiles.h"
#include "softtoken.h"
#include "storeview.h"
#include "testfolder.h"
#include "updaterprogram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace testsupport {
namespace {

using testing::HasSubstr;

[[maybe_unused]] const auto* const authority =
    testing::AddGlobalTestEnvironment(new signedfiles::TrustedAuthority);

// As update.cpp has them.
constexpr wchar_t csp[] = L"My Token CSP";
constexpr wchar_t store[] = L"MY";

class UpdateExample : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(clean().exitCode, 0); }
    void TearDown() override { EXPECT_EQ(clean().exitCode, 0); }

    static Outcome clean() { return runUpdater({{L"clean", L"--csp", csp}}); }
    Outcome update(const std::wstring& pin) const {
        auto environment = token_.environment();
        environment[L"TOKEN_PIN"] = pin;
        return runProgram(L"example_update.exe", {{SoftToken::module()}, "", environment});
    }
    static Outcome list() { return runProgram(L"example_list.exe", {{store, csp}}); }

    TestFolder folder_;
    SoftToken token_{folder_.path()};
    InstalledCsp installed_{csp};
};

TEST_F(UpdateExample, RegistersWhatTheListExampleShows) {
    token_.addKey({0x01, 0xAB});
    token_.addCertificate(CertBuilder()
                              .subject(name({{"C", "DE"}, {"CN", "J\xC3\xA4ger, Eva"}}))
                              .extensions({keyUsage({0})})
                              .build(),
                          {0x01, 0xAB}, "signing");
    token_.addCertificate(CertBuilder().names("Root", "Root").build(), {0x02}, "no key");

    const Outcome updated = update(std::wstring(SoftToken::pin.begin(), SoftToken::pin.end()));
    EXPECT_EQ(updated.exitCode, 0) << testing::PrintToString(updated);
    const Outcome listed = list();
    EXPECT_EQ(listed.output, "CKAIDHEX:01AB\n"
                             "    CN=J\xC3\xA4ger\\, Eva, C=DE\n"
                             "    until 2036-01-01T00:00:00Z\n")
        << testing::PrintToString(listed);
}

TEST_F(UpdateExample, TellsWhatTheTokenAnswersToAWrongPin) {
    const Outcome outcome = update(L"wrong PIN");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("Pkcs11Error_CryptokiError"));
    EXPECT_THAT(outcome.errors, HasSubstr("160"));
    EXPECT_EQ(list().output, "");
}

TEST(ListExample, TellsWhichStoreItCannotOpen) {
    const std::wstring overlong(300, L'x');
    const Outcome outcome = runProgram(L"example_list.exe", {{overlong, csp}});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot open the store xxx"));
}

TEST(PublishExample, GrantsAFileThatWindowsTrusts) {
    const TestFolder folder;
    const auto file = folder.path() / "module.exe";
    copy_file(signedfiles::folder() / "signed.exe", file);
    const Outcome outcome = runProgram(L"example_publish.exe", {{file.wstring()}});
    EXPECT_EQ(outcome.exitCode, 0) << testing::PrintToString(outcome);
    EXPECT_EQ(outcome.output, "application packages may read it\n");
}

TEST(PublishExample, GrantsNothingWithoutASignature) {
    const auto file = signedfiles::folder() / "unsigned.exe";
    const Outcome outcome = runProgram(L"example_publish.exe", {{file.wstring()}});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.errors, "Windows does not trust its signature\n");
}

} // namespace
} // namespace testsupport
