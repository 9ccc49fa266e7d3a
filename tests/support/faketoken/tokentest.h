// The fixture of tests that use the fake token.
#pragma once

#include "loadedtoken.h"

#include <gtest/gtest.h>

#include <vector>

namespace faketoken {

/// Loads the fake token for the test to script. Afterwards no session, search or reference to the
/// module may be left: what a test leaves open or loads twice, it fails for.
class TokenTest : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(token->openSessions(), 0u);
        EXPECT_EQ(token->activeSearches(), 0u);
        EXPECT_EQ(token->sessionsLeftAtFinalize, 0u);
        EXPECT_FALSE(token->initialized);
        EXPECT_FALSE(token.release()) << "the module is still loaded";
    }

    /// The objects of the first slot's token.
    std::vector<Object>& objects() { return token->slots[0].objects; }

    LoadedToken token;
};

} // namespace faketoken
