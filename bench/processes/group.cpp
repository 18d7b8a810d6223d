#include "bench/processes/group.h"

#include <cstdio>
#include <numeric>

namespace Bench {

std::string NameOf(size_t number) {
    char name[32];
    (void)snprintf(name, sizeof(name), "app%05zu", number);
    return name;
}

std::vector<std::string> NamesOf(const Group& group) {
    std::vector<std::string> names;
    names.reserve(group.count);
    for (size_t number = 0; number < group.count; ++number) {
        names.push_back(NameOf(number));
    }
    return names;
}

std::vector<std::string> CommandOf(const Group& group, size_t number) {
    return {group.program, group.pipe, std::to_string(number)};
}

std::string ManifestsOf(const Group& group) {
    std::string text;
    for (size_t number = 0; number < group.count; ++number) {
        const std::vector<std::string> command = CommandOf(group, number);
        text += "- app_name: " + NameOf(number) + "\n  bin_path: " + command[0] + "\n  arguments: ['" + command[1] +
                "', '" + command[2] + "']\n  restart: on-forever\n";
        text += group.isReporting ? "  is_reporting: true\n" : "";
        text += group.isChain && number > 0 ? "  depends: [" + NameOf(number - 1) + "]\n" : "";
    }
    return text;
}

std::vector<std::vector<size_t>> WavesOf(const Group& group) {
    std::vector<size_t> all(group.count);
    std::iota(all.begin(), all.end(), size_t{0});
    if (!group.isChain) {
        return {all};
    }
    std::vector<std::vector<size_t>> waves;
    waves.reserve(all.size());
    for (const size_t number : all) {
        waves.push_back({number});
    }
    return waves;
}

int64_t RunsSince(const Group& group, const BenchStamp& stamp) {
    return group.isReporting ? stamp.readyNs : stamp.startedNs;
}

Edges CheckStarts(const Group& group, const std::vector<BenchStamp>& stamps) {
    Edges edges;
    for (size_t number = 1; group.isChain && group.isReporting && number < group.count; ++number) {
        ++edges.checked;
        edges.wrong += stamps[number].startedNs < stamps[number - 1].readyNs ? 1 : 0;
    }
    return edges;
}

Edges CheckEnds(const Group& group, const std::vector<BenchStamp>& stamps) {
    Edges edges;
    for (size_t number = 1; group.isChain && number < group.count; ++number) {
        ++edges.checked;
        edges.wrong += stamps[number - 1].endedNs < stamps[number].endedNs ? 1 : 0;
    }
    return edges;
}

}  // namespace Bench
