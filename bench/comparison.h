// Rows of the benchmark: the same work, done by the library and by what people use instead.
#pragma once

#include "heap.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// Who does the work. This library is always called the same, so that the table can tell it.
inline constexpr char library[] = "certstoreupdater";

/// A row: one contender at one piece of work of one size.
struct Row {
    std::string name;              ///< work/contender/size
    std::function<void()> perform; ///< the work once
    /// How many times the work is done when its instructions are counted; 0 is not at all,
    /// because it would take minutes.
    std::size_t countedRuns;
};

/// In the order in which they were added.
std::vector<Row>& rows();

/// How often instructions are counted when an operation takes the inputs one after the other.
inline constexpr std::size_t countedRunsOfOne = 10;

/// Adds a row. What the operation returns is used, so that the work cannot be optimised away.
/// \param size what the work grows with: characters, certificates...; 1 if it does not
template <class Operation>
void compare(const std::string& work, const std::string& contender, std::size_t size,
             Operation operation, std::size_t countedRuns = countedRunsOfOne) {
    const std::string name = work + "/" + contender + "/" + std::to_string(size);
    rows().push_back(
        {name, [operation]() mutable { benchmark::DoNotOptimize(operation()); }, countedRuns});
    benchmark::RegisterBenchmark(name.c_str(), [operation](benchmark::State& state) mutable {
        const HeapUse before = heapUse();
        for ([[maybe_unused]] auto _ : state)
            benchmark::DoNotOptimize(operation());
        const HeapUse after = heapUse();
        state.counters["allocations"] =
            benchmark::Counter(static_cast<double>(after.allocations - before.allocations),
                               benchmark::Counter::kAvgIterations);
    });
}

// What the files of this folder measure; each adds its rows.
void addDecoding();
void addEncoding();
void addCopying();
void addBuffers();
void addCodecs();
void addClassifying();
void addHarvesting();

} // namespace bench
