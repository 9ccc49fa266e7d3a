// What the program and all libraries in it take from the heap.
#pragma once

#include <cstddef>

namespace bench {

struct HeapUse {
    std::size_t allocations = 0; ///< calls of malloc and its kin so far
    std::size_t bytes = 0;       ///< usable bytes of the blocks that are not freed
};

/// Of all threads together. heap.cpp stands in for the C library's malloc, so this counts what C
/// libraries take as well as what operator new does.
HeapUse heapUse() noexcept;

} // namespace bench
