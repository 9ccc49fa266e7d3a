// The memory that the library takes: any allocation can be made to fail, and what it takes is
// counted until it is freed.
#pragma once

#include "tally.h"

#include <cstddef>
#include <string>

namespace torture {

/// Redirects the allocation functions that the library imports. Its memory may also be freed by
/// this program, which destroys what the library returns and throws; what the C++ run-time library
/// takes for itself, such as the room of an exception, is not counted and does not fail.
///
/// One object at a time, one thread, no others of the library. MinGW only: other compilers have
/// their operators under other names.
class LibraryAllocations {
public:
    LibraryAllocations();
    LibraryAllocations(const LibraryAllocations&) = delete;
    LibraryAllocations& operator=(const LibraryAllocations&) = delete;
    ~LibraryAllocations();

    /// Counts anew. The n-th allocation from now on fails; 0: none.
    void begin(std::size_t failing = 0);
    /// Allocations since `begin`, the failed one included.
    std::size_t count() const noexcept;
    bool hasFailed() const noexcept;
    /// Blocks that were allocated while this object lives and are not freed.
    std::size_t live() const noexcept;
};

/// Does `run(n)` for the n-th of `count` allocations, for every n.
template <class Run>
void failEachAllocation(Tally& tally, std::size_t count, Run run) {
    for (std::size_t n = 1; n <= count && tally.goesOn(); ++n) {
        tally.addAllocation();
        tally.run("allocation " + std::to_string(n), [&] { run(n); });
    }
}

} // namespace torture
