// Tables.
#include "table.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace updater {
namespace {

std::wstring textOf(const Spans& spans) {
    std::wstring text;
    for (const Span& span : spans)
        text += span.text;
    return text;
}

TEST(Table, AlignsItsColumns) {
    Table table{L"A", L"LONG", L"END"};
    table.add({{L"longer"}, {L"b"}, {L"c"}});
    EXPECT_EQ(textOf(table.layout(std::nullopt)), L"A       LONG  END\n"
                                                  L"longer  b     c\n");
}

TEST(Table, HasNoHeadingsUnlessItIsGivenSome) {
    Table table;
    EXPECT_EQ(textOf(table.layout(80)), L"");
    table.add({{L"a"}, {L"b"}});
    EXPECT_EQ(textOf(table.layout(80)), L"a  b\n");
}

TEST(Table, IsEmptyUntilItHasARow) {
    Table table{L"A"};
    EXPECT_TRUE(table.empty());
    table.add({{L"b"}});
    EXPECT_FALSE(table.empty());
}

TEST(Table, BreaksItsWidestColumnsBehindBlanksAndCommasToFit) {
    Table table{L"STATE", L"SUBJECT"};
    table.add({{L"missing"}, {L"CN=Zoe Example,OU=Some department,O=Somebody"}});
    EXPECT_EQ(textOf(table.layout(30)), L"STATE    SUBJECT\n"
                                        L"missing  CN=Zoe Example,\n"
                                        L"         OU=Some department,\n"
                                        L"         O=Somebody\n");
}

TEST(Table, BreaksAWordThatIsWiderThanItsColumn) {
    Table table;
    table.add({{L"CKAIDHEX:00112233445566778899AABBCCDDEEFF"}, {L"end"}});
    EXPECT_EQ(textOf(table.layout(30)), L"CKAIDHEX:0011223344556677  end\n"
                                        L"8899AABBCCDDEEFF\n");
}

TEST(Table, LosesNothingHoweverNarrowItIs) {
    Table table{L"FIRST", L"SECOND"};
    table.add({{L"abcdefghijklmnopqrstuvwxyz"}, {L"one two three four five six"}});
    std::wstring text = textOf(table.layout(1));
    std::erase_if(text, [](wchar_t unit) { return unit == L' ' || unit == L'\n'; });
    EXPECT_EQ(text, L"FIRSTSECONDabcdefghijonetwoklmnopqrstthreefouruvwxyzfivesix");
}

TEST(Table, DoesNotBreakWhatFits) {
    Table table;
    table.add({{L"a b c d"}, {L"e f"}});
    EXPECT_EQ(textOf(table.layout(12)), L"a b c d  e f\n");
}

TEST(Table, KeepsTheColoursOfItsCells) {
    Table table;
    table.add({{L"in step", Colour::good}, {L"rest"}});
    const Spans spans = table.layout(std::nullopt);
    const auto good = std::find_if(spans.begin(), spans.end(),
                                   [](const Span& span) { return span.colour == Colour::good; });
    ASSERT_NE(good, spans.end());
    EXPECT_EQ(good->text, L"in step");
}

TEST(Table, ShowsNothingThatSteersAConsole) {
    Table table;
    table.add({{L"a\x1B[2J\nb"}});
    EXPECT_EQ(textOf(table.layout(80)), L"a\uFFFD[2J\uFFFDb\n");
}

} // namespace
} // namespace updater
