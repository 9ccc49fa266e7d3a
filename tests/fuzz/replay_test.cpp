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
#include <string>
#include <vector>

namespace fuzz {

void PrintTo(const Target& target, std::ostream* out) {
    *out << target.name;
}

namespace {

using Bytes = std::vector<unsigned char>;

Bytes contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

/// Runs on a copy, whose block is just the input's size, so that sanitizers see any read beyond it.
void runOnExactCopy(const Target& target, const Bytes& input) {
    const Bytes exact(input.begin(), input.end());
    target.run({exact.data(), exact.size()});
}

class Replay : public testing::TestWithParam<Target> {
protected:
    static void run(const Bytes& input) { runOnExactCopy(GetParam(), input); }

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

// Every file lies in the folder of its target, and the list names it.
TEST(KeptInputs, HoldForTheirTargets) {
    namespace fs = std::filesystem;
    const fs::path corpus = FUZZ_CORPUS;
    const Bytes list = contentsOf(corpus / "README.md");
    std::size_t inputs = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (entry.is_directory() || entry.path().parent_path() == corpus)
            continue;
        const std::string name = fs::relative(entry.path(), corpus).generic_string();
        const std::string folder = name.substr(0, name.find('/'));
        const auto* target =
            std::ranges::find_if(targets, [&](const Target& each) { return each.name == folder; });
        ASSERT_NE(target, std::end(targets)) << name;
        EXPECT_NO_THROW(runOnExactCopy(*target, contentsOf(entry.path()))) << name;
        EXPECT_NE(std::string(list.begin(), list.end()).find('`' + name + '`'), std::string::npos)
            << name;
        ++inputs;
    }
    EXPECT_GT(inputs, 0u);
}

} // namespace
} // namespace fuzz
