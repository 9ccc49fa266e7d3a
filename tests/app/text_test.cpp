// Text that is safe to show, and certificates in words.
#include "certificatetext.h"

#include "memoryregistry.h"
#include "text.h"

#include <gtest/gtest.h>

namespace updater {
namespace {

TEST(PrintableText, HasNothingThatMovesACursorBreaksALineOrTurnsDirection) {
    EXPECT_EQ(printable(L"a\x1B[31mb\nc\x7F\x9Bm\u202Ed\u2066"),
              L"a\uFFFD[31mb\uFFFDc\uFFFD\uFFFDm\uFFFDd\uFFFD");
    EXPECT_EQ(printable(L"\u00E4 \u05D0 \U0001F511"), L"\u00E4 \u05D0 \U0001F511");
}

TEST(Utf8, PutsSurrogatePairsTogetherAndReplacesLoneHalves) {
    EXPECT_EQ(toUtf8(L"\U0001F511"), "\xF0\x9F\x94\x91");
    EXPECT_EQ(toUtf8(std::wstring{L'a', static_cast<wchar_t>(0xD83D), L'b'}), "a\xEF\xBF\xBD"
                                                                              "b");
    EXPECT_EQ(toWide("\xF0\x9F\x94\x91"), L"\U0001F511");
    EXPECT_EQ(toWide("").size(), 0u);
}

TEST(CertificateText, ShowsSubjectAndDays) {
    using namespace testsupport;
    const auto certificate = certificateOf(
        CertBuilder()
            .names("Anna", "Issuer")
            .validity(sequence({utcTime("260102030405Z"), generalizedTime("20510102030405Z")}))
            .build());
    EXPECT_EQ(certificateText(certificate), L"CN=Anna, 2026-01-02 to 2051-01-02");
}

TEST(CertificateText, ShowsThatASubjectCannotBeRead) {
    using namespace testsupport;
    const auto certificate = certificateOf(
        CertBuilder().subject(nameOf({set({attribute("2.5.4.3", integer(1))})})).build());
    EXPECT_EQ(subjectText(certificate), L"(unreadable)");
    const auto nameless = certificateOf(CertBuilder().subject(sequence({})).build());
    EXPECT_EQ(subjectText(nameless), L"(no subject)");
}

TEST(CertificateText, HasTheFriendlyNameThatARegistrationGives) {
    using namespace testsupport;
    const auto named = certificateOf(CertBuilder().names("Anna", "Issuer").build());
    EXPECT_EQ(friendlyNameText(itemOf(named, L"a label")), L"a label");
    EXPECT_EQ(friendlyNameText(itemOf(named)), L"Anna");
    const auto organisation = certificateOf(
        CertBuilder().subject(nameOf({set({attribute("2.5.4.10", utf8String("Org"))})})).build());
    EXPECT_EQ(friendlyNameText(itemOf(organisation)), L"O=Org");
    const auto malformed = certificateOf(
        CertBuilder().subject(nameOf({set({attribute("2.5.4.3", integer(1))})})).build());
    EXPECT_EQ(friendlyNameText(itemOf(malformed)), L"(unreadable)");
}

TEST(CertificateText, HasSerialNumberAndMomentsForPrograms) {
    using namespace testsupport;
    const auto certificate = certificateOf(
        CertBuilder()
            .serialNumber(0x1234)
            .names("Anna", "Issuer")
            .validity(sequence({utcTime("260102030405Z"), generalizedTime("20510102030405Z")}))
            .build());
    EXPECT_EQ(serialNumberText(certificate), L"1234");
    EXPECT_EQ(notBeforeText(certificate), L"2026-01-02T03:04:05Z");
    EXPECT_EQ(notAfterText(certificate), L"2051-01-02T03:04:05Z");
    EXPECT_EQ(issuerText(certificate), L"CN=Issuer");
}

} // namespace
} // namespace updater
