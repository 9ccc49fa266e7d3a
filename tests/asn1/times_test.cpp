// Times: their two forms, the days that there are, and their text.
#include "asn1support.h"

namespace asn1_test {
namespace {

using namespace testsupport;

std::string utcText(std::string_view text) {
    return asciiOf(asn1::Time(asn1::UTCTime(text)).text());
}

std::string generalText(std::string_view text) {
    return asciiOf(asn1::Time(asn1::GeneralizedTime(text)).text());
}

TEST(TimeText, OfUtcTimeHasTheCenturyThatItsYearTells) {
    EXPECT_EQ(utcText("260131235959Z"), "2026-01-31T23:59:59Z");
    EXPECT_EQ(utcText("000101000000Z"), "2000-01-01T00:00:00Z");
    EXPECT_EQ(utcText("491231235959Z"), "2049-12-31T23:59:59Z");
    EXPECT_EQ(utcText("500101000000Z"), "1950-01-01T00:00:00Z");
    EXPECT_EQ(utcText("991231235959Z"), "1999-12-31T23:59:59Z");
}

TEST(TimeText, OfGeneralizedTimeIsWhole) {
    EXPECT_EQ(generalText("20510102030405Z"), "2051-01-02T03:04:05Z");
    EXPECT_EQ(generalText("99991231235959Z"), "9999-12-31T23:59:59Z");
    EXPECT_EQ(generalText("00000101000000Z"), "0000-01-01T00:00:00Z");
    EXPECT_EQ(generalText("20510102030405.0625Z"), "2051-01-02T03:04:05.0625Z");
}

TEST(TimeText, NeedsAChoiceAndAValue) {
    EXPECT_EQ(thrownBy([] { asn1::Time().text(); }), unset("Time"));
    asn1::Time time;
    time.choose(0);
    EXPECT_EQ(thrownBy([&] { time.text(); }), unset("UTCTime"));
    time.choose(1);
    EXPECT_EQ(thrownBy([&] { time.text(); }), unset("GeneralizedTime"));
    time.choose(2);
    EXPECT_EQ(thrownBy([&] { time.text(); }), unset("Time"));
}

TEST(Times, GiveTheirCharacters) {
    EXPECT_EQ(asn1::UTCTime("260131235959Z").text(), "260131235959Z");
    EXPECT_EQ(asn1::GeneralizedTime("20510102030405.5Z").text(), "20510102030405.5Z");
    EXPECT_EQ(thrownBy([] { asn1::UTCTime().text(); }), unset("UTCTime"));
    EXPECT_EQ(thrownBy([] { asn1::GeneralizedTime().text(); }), unset("GeneralizedTime"));
}

TEST(Times, AreWrittenAsTheyWereSet) {
    EXPECT_EQ(encoded(asn1::UTCTime("260131235959Z")), utcTime("260131235959Z"));
    EXPECT_EQ(encoded(asn1::Time(asn1::GeneralizedTime("20510102030405Z"))),
              generalizedTime("20510102030405Z"));
}

TEST(Times, EndWithTheirZ) {
    for (const char* const text :
         {"260131235959Z0", "260131235959ZZ", "260131235959Z5Z", "2601Z"}) {
        asn1::UTCTime time;
        EXPECT_EQ(thrownBy([&] { decode(utcTime(text), time); }), mismatch(0)) << text;
        EXPECT_EQ(thrownBy([&] { asn1::UTCTime made(text); }), settingValue("UTCTime")) << text;
    }
}

bool isTime(std::string_view text) {
    const Bytes encoding = text.size() == 13 ? utcTime(text) : generalizedTime(text);
    asn1::Time time;
    const Thrown thrown = thrownBy([&] { decode(encoding, time); });
    const Thrown made = thrownBy([&] {
        if (text.size() == 13)
            asn1::UTCTime value(text);
        else
            asn1::GeneralizedTime value(text);
    });
    // Decoding and setting agree.
    const bool decodes = thrown.type == typeid(void);
    EXPECT_EQ(decodes, made.type == typeid(void)) << text;
    if (!decodes) {
        EXPECT_EQ(thrown, mismatch(0));
        EXPECT_EQ(made, settingValue(text.size() == 13 ? "UTCTime" : "GeneralizedTime"));
    }
    return decodes;
}

std::string digits(unsigned number, std::size_t width) {
    std::string text = std::to_string(number);
    return std::string(width - text.size(), '0') + text;
}

TEST(Times, AreOnDaysThatThereAre) {
    const unsigned days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (unsigned month = 0; month <= 13; ++month)
        for (unsigned day = 0; day <= 32; ++day) {
            const bool expected = month >= 1 && month <= 12 && day >= 1 && day <= days[month - 1];
            const std::string rest = digits(month, 2) + digits(day, 2) + "120000Z";
            EXPECT_EQ(isTime("27" + rest), expected) << rest;
            EXPECT_EQ(isTime("2027" + rest), expected) << rest;
        }
}

TEST(Times, HaveALeapDayInLeapYears) {
    for (const unsigned year : {1600u, 1904u, 1996u, 2000u, 2004u, 2024u, 2096u, 2400u, 0u})
        EXPECT_TRUE(isTime(digits(year, 4) + "0229120000Z")) << year;
    for (const unsigned year : {1700u, 1800u, 1900u, 1999u, 2001u, 2026u, 2100u, 9999u})
        EXPECT_FALSE(isTime(digits(year, 4) + "0229120000Z")) << year;
    // 2000 and 1952; 1951 and 2001.
    EXPECT_TRUE(isTime("000229120000Z"));
    EXPECT_TRUE(isTime("520229120000Z"));
    EXPECT_FALSE(isTime("510229120000Z"));
    EXPECT_FALSE(isTime("010229120000Z"));
}

TEST(Times, AreAtMinutesThatThereAre) {
    for (unsigned number = 0; number <= 99; ++number) {
        const std::string two = digits(number, 2);
        EXPECT_EQ(isTime("260101" + two + "0000Z"), number <= 23);
        EXPECT_EQ(isTime("26010100" + two + "00Z"), number <= 59);
        EXPECT_EQ(isTime("2601010000" + two + "Z"), number <= 59);
        EXPECT_EQ(isTime("20260101" + two + "0000Z"), number <= 23);
        EXPECT_EQ(isTime("2026010100" + two + "00Z"), number <= 59);
        EXPECT_EQ(isTime("202601010000" + two + "Z"), number <= 59);
    }
}

TEST(Times, HaveDigitsEverywhere) {
    const std::string utc = "260111111111Z";
    for (std::size_t i = 0; i != utc.size(); ++i)
        for (const char c : {'/', ':', ' ', '+', 'A', 'z', '\0'}) {
            std::string broken = utc;
            broken[i] = c;
            EXPECT_FALSE(isTime(broken)) << broken;
            EXPECT_FALSE(isTime("20" + broken)) << broken;
        }
}

TEST(GeneralizedTime, HasAFractionWithoutZerosAtItsEnd) {
    const std::string seconds = "20260101000000";
    for (const char* fraction : {"", ".1", ".9", ".05", ".123456789012345678901"})
        EXPECT_TRUE(isTime(seconds + fraction + "Z")) << fraction;
    for (const char* fraction : {".", ".0", ".10", ".00", ",5", "5", ".5.5", ". 5", ".-5", ".5 "})
        EXPECT_FALSE(isTime(seconds + fraction + "Z")) << fraction;
}

} // namespace
} // namespace asn1_test
