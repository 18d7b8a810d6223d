/// Runs the simulator for long: one process per seed, several at a time, so that each starts fresh and a seed repeats
/// by itself.
///
/// usage: procmgr_soak [--seed N] [--minutes M | --rounds R] [--steps S] [--jobs J]
/// Exit code 1 after the first seed that complains, 2 for a wrong command line.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "tests/simulator/simulated_group.h"

namespace {

struct Options {
    long seed = 1;
    long minutes = 0;
    long rounds = 1;
    long steps = 60;
    long jobs = 1;
};

struct Switch {
    const char* name;
    long Options::*value;
};

constexpr Switch kSwitches[] = {{"--seed", &Options::seed},
                                {"--minutes", &Options::minutes},
                                {"--rounds", &Options::rounds},
                                {"--steps", &Options::steps},
                                {"--jobs", &Options::jobs}};

bool Set(const char* name, const char* text, Options& options) {
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    for (const Switch& known : kSwitches) {
        if (std::strcmp(known.name, name) == 0 && *text != '\0' && *end == '\0' && value >= 0) {
            options.*known.value = value;
            return true;
        }
    }
    return false;
}

bool Parse(int argc, char** argv, Options& options) {
    for (int at = 1; at + 1 < argc; at += 2) {
        if (!Set(argv[at], argv[at + 1], options)) {
            return false;
        }
    }
    return argc % 2 == 1 && options.jobs > 0;
}

int Round(uint32_t seed, int steps) {
    SimulatedGroup group(seed);
    const auto complaints = group.Round(steps);
    for (const std::string& complaint : complaints) {
        std::printf("seed %u: %s\n", seed, complaint.c_str());
    }
    std::fflush(stdout);
    return complaints.empty() ? 0 : 1;
}

pid_t Begin(uint32_t seed, const Options& options) {
    const pid_t child = fork();
    if (child == 0) {
        std::exit(Round(seed, static_cast<int>(options.steps)));
    }
    return child;
}

/// Waits for one of the rounds; true when it found nothing.
bool EndOne(std::map<pid_t, uint32_t>& running, long steps) {
    int status = 0;
    const pid_t child = wait(&status);
    const uint32_t seed = running[child];
    running.erase(child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return true;
    }
    std::printf("seed %u failed; --seed %u --steps %ld runs it again\n", seed, seed, steps);
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!Parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: procmgr_soak [--seed N] [--minutes M | --rounds R] [--steps S] [--jobs J]\n");
        return 2;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(options.minutes);
    const auto isTimeLeft = [&] { return options.minutes > 0 && std::chrono::steady_clock::now() < end; };
    std::map<pid_t, uint32_t> running;
    long begun = 0;
    bool ok = true;
    while (ok && (begun < options.rounds || isTimeLeft())) {
        const auto seed = static_cast<uint32_t>(options.seed + begun++);
        running[Begin(seed, options)] = seed;
        ok = running.size() < static_cast<size_t>(options.jobs) || EndOne(running, options.steps);
    }
    while (!running.empty()) {
        ok = EndOne(running, options.steps) && ok;
    }
    if (ok) {
        std::printf("%ld rounds of %ld requests from seed %ld found nothing\n", begun, options.steps, options.seed);
    }
    return ok ? 0 : 1;
}
