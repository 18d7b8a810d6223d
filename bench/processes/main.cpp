/// How long a group of real processes takes to come up, to be replaced and to go, under the process manager and under
/// the floor, which take turns. Prints one line; the columns are those of kColumns.
///
///     boot_bench PROCMGRD BENCH_APP FOLDER wide|chain COUNT started|reporting
///     boot_bench --head
///
/// The exit code is 1 when a dependency was not kept to or something did not work, never for being slow.
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "bench/processes/floor.h"
#include "bench/processes/group.h"
#include "bench/processes/managed.h"
#include "bench/processes/stamp_pipe.h"

namespace Bench {
namespace {

constexpr size_t kRounds = 10;
constexpr size_t kKillsPerRound = 10;

/// All in milliseconds.
struct Times {
    std::vector<double> up;        ///< from the request until the last application runs
    std::vector<double> known;     ///< from the request until whoever asked knows it
    std::vector<double> replaced;  ///< from kill -9 until another process runs
    std::vector<double> down;      ///< from the request until all are gone and whoever asked knows it
};

struct Column {
    const char* head;
    std::vector<double> Times::*times;
};

constexpr Column kColumns[] = {
    {"all run", &Times::up}, {"and known", &Times::known}, {"replaced", &Times::replaced}, {"all gone", &Times::down}};

double Milliseconds(int64_t beginNs, int64_t endNs) {
    return static_cast<double>(endNs - beginNs) / 1e6;
}

/// The stamps in the order of the applications.
std::vector<BenchStamp> Sorted(std::vector<BenchStamp> stamps) {
    std::sort(stamps.begin(), stamps.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
    return stamps;
}

class Measurement {
public:
    Measurement(const Group& group, Starter& starter, const StampPipe& pipe)
        : group_(group), starter_(starter), pipe_(pipe) {}

    void Round() {
        std::vector<BenchStamp> stamps = MeasureStart();
        Add(CheckStarts(group_, stamps));
        MeasureReplacements(stamps);
        Add(CheckEnds(group_, MeasureStop()));
    }

    void Forget() { times_ = {}; }

    double MedianOf(std::vector<double> Times::*times) const {
        std::vector<double> sorted = times_.*times;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

    const Edges& CheckedEdges() const { return edges_; }

private:
    std::vector<BenchStamp> MeasureStart() {
        const int64_t requested = BenchNow();
        starter_.Start();
        const int64_t known = BenchNow();
        const std::vector<BenchStamp> stamps = Sorted(pipe_.Take(group_.count));
        int64_t last = 0;
        for (const BenchStamp& stamp : stamps) {
            last = std::max(last, RunsSince(group_, stamp));
        }
        times_.up.push_back(Milliseconds(requested, last));
        times_.known.push_back(Milliseconds(requested, known));
        return stamps;
    }

    void MeasureReplacements(const std::vector<BenchStamp>& stamps) {
        const size_t kills = std::min(kKillsPerRound, group_.count);
        for (size_t kill = 0; kill < kills; ++kill) {
            MeasureReplacement(stamps[kill * group_.count / kills].pid);
        }
    }

    void MeasureReplacement(pid_t pid) {
        const int64_t killed = BenchNow();
        kill(pid, SIGKILL);
        starter_.Replace(pid);
        const BenchStamp stamp = pipe_.Take(1).front();
        times_.replaced.push_back(Milliseconds(killed, RunsSince(group_, stamp)));
        starter_.AwaitKnown(stamp.pid);
    }

    std::vector<BenchStamp> MeasureStop() {
        const int64_t requested = BenchNow();
        starter_.Stop();
        times_.down.push_back(Milliseconds(requested, BenchNow()));
        return Sorted(pipe_.Take(group_.count));
    }

    void Add(Edges edges) {
        edges_.checked += edges.checked;
        edges_.wrong += edges.wrong;
    }

    const Group& group_;
    Starter& starter_;
    const StampPipe& pipe_;
    Times times_;
    Edges edges_;
};

void PrintHead() {
    (void)printf("milliseconds, medians: floor, process manager (ratio)\n%-22s", "");
    for (const Column& column : kColumns) {
        (void)printf(" %25s", column.head);
    }
    (void)printf("   edges out of order\n");
}

void PrintRow(const std::string& name, const Measurement& floor, const Measurement& managed) {
    (void)printf("%-22s", name.c_str());
    for (const Column& column : kColumns) {
        const double bare = floor.MedianOf(column.times);
        const double ours = managed.MedianOf(column.times);
        (void)printf(" %8.2f %8.2f (%5.2f)", bare, ours, ours / bare);
    }
    (void)printf("   %zu of %zu\n", managed.CheckedEdges().wrong, managed.CheckedEdges().checked);
}

int Run(char** arguments) {
    const std::string folder = arguments[2];
    Group group;
    group.program = arguments[1];
    group.pipe = folder + "/stamps";
    group.isChain = std::string(arguments[3]) == "chain";
    group.count = std::strtoul(arguments[4], nullptr, 10);
    group.isReporting = std::string(arguments[5]) == "reporting";
    const StampPipe pipe(group.pipe);
    Floor floor(group, folder + "/floor.sock");
    Managed managed(group, arguments[0], folder);
    Measurement onFloor(group, floor, pipe);
    Measurement onManaged(group, managed, pipe);
    for (size_t round = 0; round < kRounds; ++round) {
        // What comes second in a pair finds other caches, so that they take turns in that, too.
        (round % 2 == 0 ? onFloor : onManaged).Round();
        (round % 2 == 0 ? onManaged : onFloor).Round();
        if (round == 0) {
            onFloor.Forget();
            onManaged.Forget();
        }
    }
    PrintRow(std::string(arguments[3]) + " " + arguments[4] + " " + arguments[5], onFloor, onManaged);
    return onManaged.CheckedEdges().wrong + onFloor.CheckedEdges().wrong == 0 ? 0 : 1;
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--head") {
        Bench::PrintHead();
        return 0;
    }
    if (argc != 7) {
        (void)fprintf(stderr, "usage: boot_bench PROCMGRD BENCH_APP FOLDER wide|chain COUNT started|reporting\n");
        return 2;
    }
    try {
        return Bench::Run(argv + 1);
    } catch (const std::exception& error) {
        (void)fprintf(stderr, "boot_bench: %s\n", error.what());
        return 1;
    }
}
