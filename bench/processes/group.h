/// The group that is measured: its shape, what starts when, and whether the time stamps kept to that.
#ifndef BENCH_PROCESSES_GROUP_H
#define BENCH_PROCESSES_GROUP_H

#include <cstddef>
#include <string>
#include <vector>

#include "bench/processes/stamp.h"

namespace Bench {

struct Group {
    bool isChain = false;      ///< each depends on the one before it; otherwise nobody depends on anybody
    bool isReporting = false;  ///< runs when it says so; otherwise when its program is executed
    size_t count = 0;
    std::string program;  ///< of the application
    std::string pipe;     ///< where it writes its stamps
};

std::string NameOf(size_t number);
std::vector<std::string> NamesOf(const Group& group);

/// What runs is to be restarted at once when it fails.
std::string ManifestsOf(const Group& group);

/// The command line of one application.
std::vector<std::string> CommandOf(const Group& group, size_t number);

/// The numbers of the applications, wave by wave in the order of starting.
std::vector<std::vector<size_t>> WavesOf(const Group& group);

/// When the application counts as running, as it tells itself.
int64_t RunsSince(const Group& group, const BenchStamp& stamp);

/// Dependencies that the stamps could break, and did break. `stamps` by number of the application.
struct Edges {
    size_t checked = 0;
    size_t wrong = 0;
};

/// An application must not be in its main function before that on which it depends said that it is ready. Programs
/// that say nothing run before they can take a time stamp: for them nothing is checked.
Edges CheckStarts(const Group& group, const std::vector<BenchStamp>& stamps);

/// An application must not be told to end before those that depend on it have ended.
Edges CheckEnds(const Group& group, const std::vector<BenchStamp>& stamps);

}  // namespace Bench

#endif
