// Names that are probably not meant.
#include "namechecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace updater {
namespace {

using testing::AllOf;
using testing::HasSubstr;

/// The warnings about a store, as programs are told of them.
std::string warningsAbout(const wchar_t* store) {
    Output output("list", {.json = true, .quiet = true});
    Options options;
    options.store = store;
    warnOfMistypedNames(options, output);
    return output.member("warnings").dump();
}

TEST(NameOfAStore, ThatIsAlmostOneOfWindowssIsQuestioned) {
    EXPECT_THAT(warningsAbout(L"MYY"),
                AllOf(HasSubstr("MYY"), HasSubstr("did you mean \\\"MY\\\"?")));
    EXPECT_THAT(warningsAbout(L"Rooot"), HasSubstr("did you mean \\\"Root\\\"?"));
    EXPECT_THAT(warningsAbout(L"TrustedPeopel"), HasSubstr("did you mean \\\"TrustedPeople\\\"?"));
}

TEST(NameOfAStore, ThatIsOneOfWindowssOrLikeNoneIsTakenAsItIs) {
    for (const wchar_t* const store :
         {L"MY", L"my", L"Root", L"REQUEST", L"Our own store", L"\u5E97"})
        EXPECT_EQ(warningsAbout(store), "[]");
}

} // namespace
} // namespace updater
