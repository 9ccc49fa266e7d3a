// Writes the seeds of all targets as files: makeseeds FOLDER makes FOLDER/TARGET/SEED.
#include "fuzztarget.h"
#include "seeds.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

namespace {

void writeSeeds(const std::filesystem::path& folder, const char* target) {
    std::filesystem::create_directories(folder);
    for (const fuzz::Seed& seed : fuzz::seedsOf(target)) {
        std::ofstream file(folder / seed.name, std::ios::binary);
        file.exceptions(std::ios::failbit | std::ios::badbit);
        file.write(reinterpret_cast<const char*>(seed.bytes.data()),
                   static_cast<std::streamsize>(seed.bytes.size()));
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: makeseeds FOLDER\n", stderr);
        return 2;
    }
    try {
        for (const fuzz::Target& target : fuzz::targets)
            writeSeeds(std::filesystem::path(argv[1]) / target.name, target.name);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "makeseeds: %s\n", error.what());
        return 1;
    }
}
