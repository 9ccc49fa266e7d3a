// An update, once for every allocation of the library.
#include "libraryallocations.h"
#include "tally.h"
#include "updatetest.h"

namespace torture {
namespace {

#if defined(__MINGW64__)
class MemoryFailure : public UpdateTest {
protected:
    std::size_t allocationsOfAnUpdate() {
        windows.begin();
        allocations.begin();
        const UpdateRun run = update();
        EXPECT_EQ(run.outcome, success);
        expectAllIsGivenBack(run);
        return allocations.count();
    }

    void expectFailure(std::size_t n) {
        renewToken();
        token->forgetCalls();
        windows.begin();
        const std::size_t live = allocations.live();
        allocations.begin(n);
        const UpdateRun run = update();
        EXPECT_TRUE(allocations.hasFailed());
        allocations.begin();
        EXPECT_EQ(run.outcome, outOfMemory);
        EXPECT_EQ(allocations.live(), live);
        expectAllIsGivenBack(run);
        if (run.stage <= Stage::opening)
            expectStoreIsUntouched();
        expectStoreCanBeCompleted();
    }

    LibraryAllocations allocations;
};

TEST_F(MemoryFailure, OfEachAllocationEndsTheUpdateAndLosesNothing) {
    Tally tally("Allocations of an update");
    failEachAllocation(tally, allocationsOfAnUpdate(), [&](std::size_t n) { expectFailure(n); });
    expectAllStatesWereMet();
}
#endif

} // namespace
} // namespace torture
