// One target as libFuzzer calls it: compiled once for each, with its name as FUZZ_TARGET.
#include "fuzztarget.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::FUZZ_TARGET({data, size});
    return 0;
}
