// What loading the library and calling it for the first time cost a process that has done
// neither. Prints two rows of a report in the JSON of Google Benchmark, a line each.
#include "buffer.h"

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

void print(const char* name, Clock::time_point start, Clock::time_point end) {
    std::printf("{\"name\": \"%s/certstoreupdater/1\", \"run_type\": \"iteration\", \"real_time\": "
                "%.6f, \"time_unit\": \"ms\"}\n",
                name, std::chrono::duration<double, std::milli>(end - start).count());
}

} // namespace

int main() {
    const auto start = Clock::now();
    const HMODULE library = LoadLibraryW(L"certstoreupdater.dll");
    const auto loaded = Clock::now();
    if (!library) {
        std::fprintf(stderr, "loadbench: the library is not there\n");
        return 1;
    }
    // korv::decimal
    using Decimal = buffer::Buffer<wchar_t> (*)(std::uint64_t);
    const auto decimal = reinterpret_cast<Decimal>(
        reinterpret_cast<void (*)()>(GetProcAddress(library, "_ZN4korv7decimalEy")));
    if (!decimal || decimal(7).size() != 1) {
        std::fprintf(stderr, "loadbench: the library has no such function\n");
        return 1;
    }
    const auto called = Clock::now();
    print("load", start, loaded);
    print("firstcall", loaded, called);
    return 0;
}
