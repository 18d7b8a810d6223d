// Every fuzz target with each of its seeds, and with each seed cut short. What is wrong ends the process.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#define FUZZ_TARGET(name) extern "C" int Fuzz_##name(const uint8_t* data, size_t size);
#include "fuzz_targets.inc"
#undef FUZZ_TARGET

namespace {

struct Target {
    const char* name;
    int (*run)(const uint8_t* data, size_t size);
};

const Target kTargets[] = {
#define FUZZ_TARGET(name) {#name, Fuzz_##name},
#include "fuzz_targets.inc"
#undef FUZZ_TARGET
};

using Seed = std::vector<char>;

std::vector<Seed> SeedsOf(const Target& target) {
    std::vector<Seed> seeds;
    const std::filesystem::path folder = std::filesystem::path(FUZZ_CORPUS_FOLDER) / target.name;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return seeds;
}

int RunTarget(const Target& target, const Seed& seed, size_t size) {
    // Exactly as much memory as the input has, so that a byte too much is seen.
    const std::vector<char> input(seed.begin(), seed.begin() + static_cast<std::ptrdiff_t>(size));
    return target.run(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

class FuzzTarget : public testing::TestWithParam<Target> {};

TEST_P(FuzzTarget, FindsNothingInItsSeedsAndTheirBeginnings) {
    constexpr size_t kCuts = 64;
    const std::vector<Seed> seeds = SeedsOf(GetParam());
    EXPECT_GE(seeds.size(), 5U) << "a target starts from good and from hostile seeds";
    for (const Seed& seed : seeds) {
        const size_t step = seed.size() / kCuts + 1;
        for (size_t size = 0; size < seed.size(); size += step) {
            EXPECT_EQ(RunTarget(GetParam(), seed, size), 0);
        }
        EXPECT_EQ(RunTarget(GetParam(), seed, seed.size()), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(EachReader, FuzzTarget, testing::ValuesIn(kTargets),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
