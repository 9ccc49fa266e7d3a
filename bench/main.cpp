// The benchmark of the portable layers: measures times and allocations, or, with --instructions
// under callgrind, counts instructions.
//   portablebench [--instructions [BEGINNING OF A ROW'S NAME] | options of Google Benchmark]
#include "comparison.h"
#include "peers/peer.h"

#include <valgrind/callgrind.h>

#include <cstdio>
#include <exception>
#include <string_view>
#include <thread>

namespace {

void countInstructions(std::string_view beginning) {
    for (const bench::Row& row : bench::rows()) {
        if (row.countedRuns == 0 || !row.name.starts_with(beginning))
            continue;
        row.perform(); // what is set up at the first use is no part of the work
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        for (std::size_t run = 0; run != row.countedRuns; ++run)
            row.perform();
        const std::string label = row.name + "/" + std::to_string(row.countedRuns);
        CALLGRIND_DUMP_STATS_AT(label.c_str());
        CALLGRIND_STOP_INSTRUMENTATION;
    }
}

int run(int count, char** arguments) {
    bench::addDecoding();
    bench::addEncoding();
    bench::addCopying();
    bench::addBuffers();
    bench::addCodecs();
    bench::addClassifying();
    bench::addHarvesting();
    for (const bench::Peer* peer : bench::allPeers())
        benchmark::AddCustomContext(peer->name(), peer->version());
    if (count > 1 && std::string_view(arguments[1]) == "--instructions") {
        countInstructions(count > 2 ? arguments[2] : "");
        return 0;
    }
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    try {
        // As in any program that Windows runs there is more than one thread, or has been: without
        // one, std::shared_ptr would count without atomic operations.
        std::thread([] {}).join();
        return run(count, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "portablebench: %s\n", error.what());
        return 1;
    }
}
