/// What a start phase and a terminate phase cost per application, when the process manager answers at once: for groups
/// of three shapes and three sizes. Beside each stands what the same run's bare work costs: filling and settling the
/// same ordered maps and the same graph, without threads, requests or states. All of it on one processor, each run with
/// cold caches.
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "app_manager/application_manager.h"
#include "bench/bench_process_manager.h"
#include "platform/include/parse_and_depend.h"
#include "pm_agent/procmgr_agent.h"

namespace {

using ProcMgr::ApplicationManager;
using Clock = std::chrono::steady_clock;

constexpr size_t kSizes[] = {1000, 10000, 50000};
constexpr size_t kSizeCount = 3;
constexpr size_t kRepeats = 9;
constexpr size_t kCacheBytes = size_t{64} << 20U;
constexpr size_t kLayerWidth = 100;
constexpr int kTimeoutMs = 600000;

enum class Shape { WIDE, CHAIN, LAYERS };
enum class Phase { START, TERMINATE };

/// Microseconds per application.
struct Cost {
    double phase = 0;
    double bare = 0;
};

struct Costs {
    Cost start;
    Cost terminate;
};

constexpr const char* kShapeNames[] = {"wide", "chain", "layers"};
constexpr size_t kShapeCount = 3;
static_assert(static_cast<size_t>(Shape::LAYERS) + 1 == kShapeCount);

using Table = Costs[kSizeCount][kShapeCount];

/// The rows of both tables.
struct Row {
    const char* phase;
    Cost Costs::*cost;
};

constexpr Row kRows[] = {{"start", &Costs::start}, {"terminate", &Costs::terminate}};

std::string NameOf(size_t index) {
    char name[32];
    (void)snprintf(name, sizeof(name), "app_%06zu", index);
    return name;
}

std::set<std::string> DependsOf(Shape shape, size_t index) {
    if (shape == Shape::CHAIN && index > 0) {
        return {NameOf(index - 1)};
    }
    if (shape == Shape::LAYERS && index >= kLayerWidth) {
        const size_t below = index - kLayerWidth;
        const size_t neighbour = below % kLayerWidth == 0 ? below + 1 : below - 1;
        return {NameOf(below), NameOf(neighbour)};
    }
    return {};
}

/// Gives manager and parser a group of `count` applications; returns their names.
std::vector<std::string> SetGroup(Shape shape, size_t count) {
    std::vector<std::string> names;
    std::vector<ApplicationManifest> manifests;
    std::unordered_map<std::string, std::set<std::string>> depends;
    for (size_t index = 0; index < count; ++index) {
        ApplicationAttributes attributes;
        attributes.appName = NameOf(index);
        attributes.depends = DependsOf(shape, index);
        names.push_back(attributes.appName);
        depends[attributes.appName] = attributes.depends;
        manifests.emplace_back(std::move(attributes));
    }
    ParseAndDepend::GetInstance().SetApplicationDependsMap(depends);
    ApplicationManager::GetInstance().UpdateApplicationList(manifests);
    return names;
}

std::vector<AppInfoForServer> RequestFor(const std::vector<std::string>& names) {
    std::vector<AppInfoForServer> request;
    request.reserve(names.size());
    for (const std::string& name : names) {
        request.push_back({name, {}, {}});
    }
    return request;
}

double MicrosecondsSince(Clock::time_point begin, size_t count) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count() / static_cast<double>(count);
}

double RunPhase(Phase phase, const std::vector<std::string>& names) {
    const std::vector<AppInfoForServer> request = RequestFor(names);
    std::vector<AppChangeInfo> results;
    const auto begin = Clock::now();
    const bool isSuccess = phase == Phase::START
                               ? ApplicationManager::GetInstance().ChangeApp({}, request, {}, results, kTimeoutMs)
                               : ApplicationManager::GetInstance().ChangeApp(request, {}, {}, results, kTimeoutMs);
    const double cost = MicrosecondsSince(begin, names.size());
    if (!isSuccess || results.size() != names.size()) {
        (void)fprintf(stderr, "a phase of %zu applications failed\n", names.size());
        exit(1);
    }
    return cost;
}

/// The ordered maps of one phase, wave by wave: each wave is looked up and marked, then looked up and settled.
class BareRun {
public:
    explicit BareRun(const std::vector<std::string>& names) : names_(names) {
        for (const std::string& name : names) {
            ApplicationAttributes attributes;
            attributes.appName = name;
            registry_.emplace(name, std::make_shared<ProcMgr::Application>(ApplicationManifest(attributes), ""));
        }
    }

    double Run(Phase phase) {
        const std::vector<AppInfoForServer> request = RequestFor(names_);
        const auto begin = Clock::now();
        Fill(phase, request);
        const std::set<std::string> first = graph_.GetNoDependVertices();
        std::vector<std::string> wave(first.begin(), first.end());
        while (!wave.empty()) {
            wave = SettleWave(wave);
        }
        std::vector<AppChangeInfo> merged;
        for (const auto& [name, state] : results_) {
            merged.emplace_back(name, state);
        }
        return MicrosecondsSince(begin, names_.size());
    }

private:
    void Fill(Phase phase, const std::vector<AppInfoForServer>& request) {
        requests_.clear();
        results_.clear();
        for (const AppInfoForServer& app : request) {
            requests_[app.appName] = &app;
            results_[app.appName] = AppChangeState::INIT;
        }
        std::vector<std::string> unknown;
        ParseAndDepend& parser = ParseAndDepend::GetInstance();
        (void)(phase == Phase::START ? parser.GetStartGraphWithErrApp(names_, graph_, unknown)
                                     : parser.GetTermGraphWithErrApp(names_, graph_, unknown));
    }

    std::vector<std::string> SettleWave(const std::vector<std::string>& wave) {
        for (const std::string& name : wave) {
            registry_.find(requests_.find(name)->second->appName)->second->SetPid(-1);
            results_.find(name)->second = AppChangeState::PROCESSING;
        }
        std::vector<std::string> next;
        for (const std::string& name : wave) {
            registry_.find(name)->second->SetPid(7);
            results_.find(name)->second = AppChangeState::SUCCESS;
            (void)graph_.Pop(name, next);
        }
        return next;
    }

    const std::vector<std::string>& names_;
    ApplicationManager::ApplicationMap registry_;
    std::map<std::string, const AppInfoForServer*> requests_;
    std::map<std::string, AppChangeState> results_;
    DependGraph graph_;
};

/// A change comes after a long silence, and finds the caches full of other work. Without this, a small group would be
/// measured in caches that it has warmed itself, and a large one, which does not fit into them, in cold ones.
void ForgetCaches() {
    static std::vector<char> other(kCacheBytes);
    for (size_t at = 0; at < other.size(); at += 64) {
        ++const_cast<volatile char&>(other[at]);
    }
}

template <typename Run>
void Add(std::vector<double>& costs, Run run) {
    ForgetCaches();
    costs.push_back(run());
}

double Median(std::vector<double>& costs) {
    std::sort(costs.begin(), costs.end());
    return costs[costs.size() / 2];
}

/// Start and terminate of one group, the median of some repeats each.
Costs Measure(Shape shape, size_t count) {
    const std::vector<std::string> names = SetGroup(shape, count);
    BareRun bare(names);
    std::vector<double> start;
    std::vector<double> terminate;
    std::vector<double> bareStart;
    std::vector<double> bareTerminate;
    for (size_t repeat = 0; repeat < kRepeats; ++repeat) {
        Add(start, [&names] { return RunPhase(Phase::START, names); });
        Add(terminate, [&names] { return RunPhase(Phase::TERMINATE, names); });
        Add(bareStart, [&bare] { return bare.Run(Phase::START); });
        Add(bareTerminate, [&bare] { return bare.Run(Phase::TERMINATE); });
    }
    return {{Median(start), Median(bareStart)}, {Median(terminate), Median(bareTerminate)}};
}

void PrintCosts(const Table& table) {
    (void)printf("microseconds per application (in brackets: bare fill-and-settle of the same maps)\n");
    (void)printf("%-18s %20s %20s %20s\n", "", "1,000", "10,000", "50,000");
    for (const Row& row : kRows) {
        for (size_t shape = 0; shape < kShapeCount; ++shape) {
            (void)printf("%-10s%-8s", row.phase, kShapeNames[shape]);
            for (const auto& ofSize : table) {
                const Cost& cost = ofSize[shape].*row.cost;
                (void)printf("   %8.2f (%6.2f)", cost.phase, cost.bare);
            }
            (void)printf("\n");
        }
    }
}

void PrintRatios(const Table& table) {
    (void)printf("\nper application at 50,000 / at 1,000\n");
    (void)printf("%-18s %20s %20s\n", "", "raw", "without the maps");
    for (const Row& row : kRows) {
        for (size_t shape = 0; shape < kShapeCount; ++shape) {
            const Cost& small = table[0][shape].*row.cost;
            const Cost& large = table[kSizeCount - 1][shape].*row.cost;
            (void)printf("%-10s%-8s %20.2f %20.2f\n", row.phase, kShapeNames[shape], large.phase / small.phase,
                         (large.phase - large.bare) / (small.phase - small.bare));
        }
    }
}

/// To wake a thread on another processor costs between 5 and 100 us, which says more of the machine than of the phases.
void StayOnOneProcessor() {
    const int processor = sched_getcpu();
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(processor < 0 ? 0 : processor), &one);
    (void)sched_setaffinity(0, sizeof(one), &one);
}

void TakeReports(const std::vector<ProcMgr::Message::AppStateInfo>& infos) {
    using Report = ProcMgr::Message::ReportAppStateType;
    ApplicationManager& manager = ApplicationManager::GetInstance();
    for (const auto& info : infos) {
        if (static_cast<Report>(info.appState) == Report::RUNNING_NORMAL_START) {
            manager.ReportRunningNormalStartFromProcMgr(info.appName, info.pid);
        } else {
            manager.ReportTerminatedNormalFromProcMgr(info.appName);
        }
    }
}

}  // namespace

int main() {
    StayOnOneProcessor();
    ProcMgr::ProcMgrAgent& agent = ProcMgr::ProcMgrAgent::GetInstance();
    if (!agent.RegAppStateChangeCallBackImpl(TakeReports)) {
        return 1;
    }
    Table table;
    for (size_t size = 0; size < kSizeCount; ++size) {
        for (size_t shape = 0; shape < kShapeCount; ++shape) {
            table[size][shape] = Measure(static_cast<Shape>(shape), kSizes[size]);
        }
    }
    agent.ClosePipe();
    PrintCosts(table);
    PrintRatios(table);
    return 0;
}
