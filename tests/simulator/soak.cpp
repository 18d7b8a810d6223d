/// Runs the simulator for long: one process per round, so that each starts fresh and a seed repeats by itself.
///
/// usage: procmgr_soak [--seed N] [--minutes M]     exit code 1 after the first round that complains
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/simulator/simulated_group.h"

namespace {

struct Options {
    uint32_t seed = 1;
    long minutes = 1;
};

bool Parse(int argc, char** argv, Options& options) {
    for (int at = 1; at + 1 < argc; at += 2) {
        char* end = nullptr;
        const long value = std::strtol(argv[at + 1], &end, 10);
        if (*end != '\0' || value < 0) {
            return false;
        }
        if (std::strcmp(argv[at], "--seed") == 0) {
            options.seed = static_cast<uint32_t>(value);
        } else if (std::strcmp(argv[at], "--minutes") == 0) {
            options.minutes = value;
        } else {
            return false;
        }
    }
    return argc % 2 == 1;
}

int Round(uint32_t seed) {
    SimulatedGroup group(seed);
    const auto complaints = group.Round(60);
    for (const std::string& complaint : complaints) {
        std::printf("seed %u: %s\n", seed, complaint.c_str());
    }
    std::fflush(stdout);
    return complaints.empty() ? 0 : 1;
}

bool RoundInAProcess(uint32_t seed) {
    const pid_t child = fork();
    if (child == 0) {
        std::exit(Round(seed));
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!Parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: procmgr_soak [--seed N] [--minutes M]\n");
        return 2;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(options.minutes);
    uint32_t seed = options.seed;
    do {
        if (!RoundInAProcess(seed)) {
            std::printf("seed %u failed; ./dev soak --seed %u repeats it\n", seed, seed);
            return 1;
        }
        ++seed;
    } while (std::chrono::steady_clock::now() < end);
    std::printf("%u rounds from seed %u found nothing\n", seed - options.seed, options.seed);
    return 0;
}
