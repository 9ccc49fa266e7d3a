// A thousand updates in one process.
#include "libraryallocations.h"
#include "updatetest.h"

#include <gmock/gmock.h>

namespace torture {
namespace {

#if defined(__MINGW64__)
class ManyUpdates : public UpdateTest {
protected:
    LibraryAllocations allocations;
};

// Before and after each run the library's blocks of memory, the handles of the process, sessions,
// searches, modules, stores and references to certificates are counted. What may be left are the
// references that finding keeps: as many as it found certificates.
TEST_F(ManyUpdates, LeaveNoMoreBehindThanTheFirst) {
    constexpr int updates = 1'000;
    const std::size_t live = allocations.live();
    for (int i = 0; i != updates && !HasFailure(); ++i) {
        renewToken();
        token->forgetCalls();
        windows.begin();
        const UpdateRun run = update();
        EXPECT_EQ(run.outcome, success);
        EXPECT_EQ(run.found, 2u);
        EXPECT_EQ(windows.contexts.held(), 2u);
        expectAllIsGivenBack(run);
        EXPECT_EQ(allocations.live(), live) << "update " << i;
    }
    expectStoreIsComplete();
}
#endif

} // namespace
} // namespace torture
