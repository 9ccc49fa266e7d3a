// Counts what a test program takes from operator new, and can make it run out of memory.
#pragma once

#include <cstddef>
#include <new>

namespace testsupport {

/// Counts the calls of operator new and operator delete that this thread makes while the object
/// lives. Objects nest; each counts for itself.
///
/// Linking allocationcount.cpp replaces the operators of the whole program. It sees what is
/// linked into the program itself: a DLL has operators of its own.
class AllocationCount {
public:
    AllocationCount() noexcept;
    ~AllocationCount();
    AllocationCount(const AllocationCount&) = delete;
    AllocationCount& operator=(const AllocationCount&) = delete;

    /// Allocations asked for, the failed one included.
    std::size_t allocations() const noexcept { return allocations_; }
    std::size_t releases() const noexcept { return releases_; }
    bool hasFailed() const noexcept { return hasFailed_; }

    /// The n-th allocation from now on fails with std::bad_alloc, the ones after it succeed.
    /// 1 is the next one; 0 takes an order back.
    void failAt(std::size_t n) noexcept { untilFailure_ = n; }

    /// For the operators: whether the allocation that is asked for may go ahead.
    static bool admit() noexcept;
    /// For the operators.
    static void noteRelease() noexcept;

private:
    AllocationCount* outer_;
    std::size_t allocations_ = 0;
    std::size_t releases_ = 0;
    std::size_t untilFailure_ = 0;
    bool hasFailed_ = false;
};

/// Runs `operation` with its n-th allocation failing, n = 1, 2, ... until a run makes fewer than
/// n allocations. After each run in which one failed `check(n, threw)` is called, with
/// allocations working again; `threw` tells whether std::bad_alloc came out of the operation.
/// \returns the number of allocations that the operation makes
template <class Operation, class Check>
std::size_t failEachAllocation(Operation operation, Check check) {
    for (std::size_t n = 1;; ++n) {
        bool hasFailed = false;
        bool threw = false;
        {
            AllocationCount count;
            count.failAt(n);
            try {
                operation();
            } catch (const std::bad_alloc&) {
                threw = true;
            }
            hasFailed = count.hasFailed();
        }
        if (!hasFailed)
            return n - 1;
        check(n, threw);
    }
}

} // namespace testsupport
