// The rows that benchmarks of whole programs print: the JSON of Google Benchmark, one row on each
// line.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

namespace bench {

/// \param name work/contender/size
inline void printRow(const std::string& name, std::chrono::steady_clock::duration time) {
    std::printf("{\"name\": \"%s\", \"run_type\": \"iteration\", \"real_time\": %.6f, "
                "\"time_unit\": \"ms\"}\n",
                name.c_str(), std::chrono::duration<double, std::milli>(time).count());
}

/// Prints how long some work takes.
template <class Work>
void measure(const std::string& name, Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    printRow(name, std::chrono::steady_clock::now() - start);
}

} // namespace bench
