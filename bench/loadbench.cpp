// What loading the library and calling it for the first time cost a process that has done neither.
#include "buffer.h"
#include "printrow.h"

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <cstdio>

using Clock = std::chrono::steady_clock;

int main() {
    const auto start = Clock::now();
    const HMODULE library = LoadLibraryW(L"certstoreupdater.dll");
    const auto loaded = Clock::now();
    if (!library) {
        std::fprintf(stderr, "loadbench: the library is not there\n");
        return 1;
    }
    // korv::decimal, by the name that GCC gives it.
    using Decimal = buffer::Buffer<wchar_t> (*)(std::uint64_t);
    const auto decimal = reinterpret_cast<Decimal>(
        reinterpret_cast<void (*)()>(GetProcAddress(library, "_ZN4korv7decimalEy")));
    if (!decimal || decimal(7).size() != 1) {
        std::fprintf(stderr, "loadbench: the library has no such function\n");
        return 1;
    }
    const auto called = Clock::now();
    bench::printRow("load/certstoreupdater/1", loaded - start);
    bench::printRow("firstcall/certstoreupdater/1", called - loaded);
    return 0;
}
