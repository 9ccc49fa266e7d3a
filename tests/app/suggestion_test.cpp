// What somebody meant who typed something else.
#include "suggestion.h"

#include <gtest/gtest.h>

namespace updater {
namespace {

const std::vector<std::string> commands{"status", "sync", "watch",  "list",
                                        "clean",  "csps", "verify", "grant"};

TEST(Suggestion, IsTheNearestName) {
    EXPECT_EQ(nearest("sinc", commands), "sync");
    EXPECT_EQ(nearest("snyc", commands), "sync");
    EXPECT_EQ(nearest("stauts", commands), "status");
    EXPECT_EQ(nearest("verfy", commands), "verify");
    EXPECT_EQ(nearest("lists", commands), "list");
    EXPECT_EQ(nearest("CLEAN", commands), "clean");
}

TEST(Suggestion, IsNoneForWhatIsTooFarFromAll) {
    EXPECT_EQ(nearest("remove", commands), std::nullopt);
    EXPECT_EQ(nearest("8241", commands), std::nullopt);
    EXPECT_EQ(nearest("", commands), std::nullopt);
    EXPECT_EQ(nearest("x", commands), std::nullopt);
    EXPECT_EQ(nearest("sync", {}), std::nullopt);
}

TEST(Suggestion, IsTheFirstOfThoseThatAreEquallyNear) {
    EXPECT_EQ(nearest("cat", {"cap", "car"}), "cap");
    EXPECT_EQ(nearest("cat", {"car", "cap"}), "car");
}

} // namespace
} // namespace updater
