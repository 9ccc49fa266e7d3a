// How wide text is on a console.
#include "columns.h"

#include <gtest/gtest.h>

namespace updater {
namespace {

TEST(Columns, AreTwoForWideCharactersAndNoneForCombiningOnes) {
    EXPECT_EQ(columnsOf(L"abc"), 3u);
    EXPECT_EQ(columnsOf(L"\u4E2D\u6587"), 4u);
    EXPECT_EQ(columnsOf(L"\uD55C"), 2u);
    EXPECT_EQ(columnsOf(L"\uFF21"), 2u);
    EXPECT_EQ(columnsOf(L"\U0001F511"), 2u);
    EXPECT_EQ(columnsOf(L"e\u0301"), 1u);
    EXPECT_EQ(columnsOf(L"\u05D0\u0416\u00E4"), 3u);
}

TEST(Columns, AreFilledWithWholeCharacters) {
    EXPECT_EQ(lengthThatFits(L"abc", 2), 2u);
    EXPECT_EQ(lengthThatFits(L"\u4E2D\u6587", 3), 1u);
    EXPECT_EQ(lengthThatFits(L"a\U0001F511", 2), 1u);
    EXPECT_EQ(lengthThatFits(L"\U0001F511", 1), 2u) << "one character at least";
    EXPECT_EQ(lengthThatFits(L"e\u0301x", 1), 2u);
    EXPECT_EQ(lengthThatFits(L"", 5), 0u);
}

} // namespace
} // namespace updater
