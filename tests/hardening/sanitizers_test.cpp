// The sanitizers of a build find what they are trusted to find: each test plants a defect in a
// process of its own.
#include "onallthreads.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

namespace {

bool hasFailed(int status) {
    return !testing::ExitedWithCode(EXIT_SUCCESS)(status);
}

/// Ends the process, after the defect, as a program does that noticed nothing. A sanitizer has
/// reported the defect by then or does so at the end.
template <class Defect>
[[noreturn]] void endAfter(Defect defect) {
    defect();
    std::exit(EXIT_SUCCESS);
}

// The compiler must not see through them.
volatile int size = 40;
char* volatile block = nullptr;

TEST(Process, EndsWellWithoutADefect) {
    EXPECT_EXIT(endAfter([] { delete new int; }), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

#ifdef __SANITIZE_ADDRESS__

TEST(AddressSanitizer, FindsALeak) {
    EXPECT_EXIT(endAfter([] {
                    block = new char[static_cast<std::size_t>(size)];
                    block = nullptr;
                }),
                hasFailed, "LeakSanitizer: detected memory leaks");
}

TEST(AddressSanitizer, FindsAReadBehindABlock) {
    EXPECT_EXIT(endAfter([] {
                    block = new char[static_cast<std::size_t>(size)];
                    size = block[size];
                }),
                hasFailed, "heap-buffer-overflow");
}

TEST(AddressSanitizer, FindsAReadOfWhatWasFreed) {
    EXPECT_EXIT(endAfter([] {
                    const int* const freed = new int(size);
                    delete freed;
                    size = *freed;
                }),
                hasFailed, "heap-use-after-free");
}

TEST(UndefinedBehaviorSanitizer, FindsAnOverflow) {
    EXPECT_EXIT(endAfter([] { size = INT_MAX - 1 + size; }), hasFailed, "signed integer overflow");
}

#endif

#ifdef __SANITIZE_THREAD__

TEST(ThreadSanitizer, FindsARace) {
    EXPECT_EXIT(endAfter([] {
                    int shared = 0;
                    testsupport::onAllThreads([&](int number) { shared += number; });
                    size = shared;
                }),
                hasFailed, "data race");
}

#endif

} // namespace
