// Runs the fuzz targets on their seeds, on what comes of these by simple changes, and on the
// inputs that were kept because they once taught something.
#include "fuzztarget.h"
#include "seeds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

namespace fuzz {

void PrintTo(const Target& target, std::ostream* out) {
    *out << target.name;
}

namespace {

using Bytes = std::vector<unsigned char>;

std::vector<Seed> keptInputs(const char* target) {
    std::vector<Seed> inputs;
    const std::filesystem::path folder = std::filesystem::path(FUZZ_CORPUS) / target;
    if (!std::filesystem::exists(folder))
        return inputs;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        EXPECT_TRUE(file) << entry.path();
        inputs.push_back(
            {entry.path().filename().string(), Bytes(std::istreambuf_iterator<char>(file), {})});
    }
    return inputs;
}

class Replay : public testing::TestWithParam<Target> {
protected:
    /// Runs on a block of just the input's size, so that sanitizers see any read beyond it.
    static void run(const Bytes& input) {
        const Bytes exact(input.begin(), input.end());
        GetParam().run({exact.data(), exact.size()});
    }

    /// Calls `use` with seeds and places in them, spread evenly over all of them.
    template <class Use>
    static void forPlacesInSeeds(Use use) {
        constexpr std::size_t atMost = 500;
        const std::vector<Seed> seeds = seedsOf(GetParam().name);
        std::size_t all = 0;
        for (const Seed& seed : seeds)
            all += seed.bytes.size();
        const std::size_t step = all / atMost + 1;
        std::size_t next = 0;
        for (const Seed& seed : seeds) {
            for (; next < seed.bytes.size(); next += step)
                use(seed, next);
            next -= seed.bytes.size();
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Replay, testing::ValuesIn(targets),
                         [](const auto& target) { return target.param.name; });

TEST_P(Replay, HoldsForSeeds) {
    for (const Seed& seed : seedsOf(GetParam().name))
        EXPECT_NO_THROW(run(seed.bytes)) << seed.name;
}

TEST_P(Replay, HoldsForKeptInputs) {
    for (const Seed& input : keptInputs(GetParam().name))
        EXPECT_NO_THROW(run(input.bytes)) << input.name;
}

TEST_P(Replay, HoldsForSeedsCutShort) {
    forPlacesInSeeds([](const Seed& seed, std::size_t place) {
        const auto size = static_cast<std::ptrdiff_t>(place);
        EXPECT_NO_THROW(run(Bytes(seed.bytes.begin(), seed.bytes.begin() + size)))
            << seed.name << ", its first " << size << " bytes";
    });
}

TEST_P(Replay, HoldsForSeedsWithAChangedByte) {
    forPlacesInSeeds([](const Seed& seed, std::size_t place) {
        Bytes changed = seed.bytes;
        // Another bit at each place, for more kinds of changes in less time.
        changed[place] = static_cast<unsigned char>(changed[place] ^ (1u << (place * 5 % 8)));
        EXPECT_NO_THROW(run(changed)) << seed.name << ", byte " << place;
    });
}

} // namespace
} // namespace fuzz
