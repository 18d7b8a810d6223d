/// Runs of random graphs against what must come out of them, whatever the order in which results arrive.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "app_manager/start_plan.h"
#include "app_manager/term_plan.h"

namespace ProcMgr {
namespace {

/// A random group without cycles: each application may depend on earlier ones.
struct RandomGroup {
    explicit RandomGroup(unsigned seed) : random(seed) {
        const size_t count = 1 + Below(12);
        for (size_t index = 0; index < count; ++index) {
            const std::string name = "a" + std::to_string(index);
            for (const std::string& earlier : names) {
                if (Below(4) == 0) {
                    depends[name].insert(earlier);
                }
            }
            names.push_back(name);
            works[name] = Below(5) != 0;
            // One that nobody requests is a dependency that runs, or does not, by itself.
            (Below(5) == 0 ? unrequested : requested).insert(name);
        }
    }

    size_t Below(size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(random); }

    std::mt19937 random;
    std::vector<std::string> names;
    std::map<std::string, std::set<std::string>> depends;
    std::map<std::string, bool> works;
    std::set<std::string> requested;
    std::set<std::string> unrequested;
};

/// What a start run must answer: an application is started when everything that it depends on runs.
ChangeResults ExpectedStart(RandomGroup& group) {
    ChangeResults results;
    for (const std::string& name : group.names) {
        if (group.requested.count(name) == 0) {
            continue;
        }
        const std::set<std::string>& depends = group.depends[name];
        const bool canStart = std::all_of(depends.begin(), depends.end(), [&](const std::string& dependency) {
            return group.unrequested.count(dependency) != 0 ? group.works[dependency]
                                                            : results[dependency] == AppChangeState::SUCCESS;
        });
        const AppChangeState outcome = group.works[name] ? AppChangeState::SUCCESS : AppChangeState::START_FAILED;
        results[name] = canStart ? outcome : AppChangeState::INIT;
    }
    return results;
}

DependGraph StartGraph(RandomGroup& group) {
    DependGraph graph;
    for (const std::string& name : group.requested) {
        graph.AddVertex(name);
        for (const std::string& dependency : group.depends[name]) {
            graph.AddEdge(name, dependency);
        }
    }
    return graph;
}

TEST(RandomPlans, StartRunCommandsExactlyThoseWhoseDependenciesRun) {
    for (unsigned seed = 0; seed < 2000; ++seed) {
        RandomGroup group(seed);
        StartAppInfo info;
        StartPlan::Open(info, {group.requested.begin(), group.requested.end()}, StartGraph(group));
        std::vector<std::string> commanded;
        for (;;) {
            const StartPlan::Round round = StartPlan::TakeRound(info);
            if (round.isDone) {
                break;
            }
            for (const std::string& name : round.noDepends) {
                if (group.unrequested.count(name) != 0 && group.works[name]) {
                    EXPECT_TRUE(StartPlan::PopVertex(info, name));
                } else if (StartPlan::MarkCommanded(info, name)) {
                    commanded.push_back(name);
                }
            }
            if (commanded.empty()) {
                // Either a dependency that runs has just set others free, or nothing can move any more.
                if (!info.hasProgress) {
                    break;
                }
                info.hasProgress = false;
                continue;
            }
            const auto chosen = commanded.begin() + static_cast<std::ptrdiff_t>(group.Below(commanded.size()));
            const std::string name = *chosen;
            commanded.erase(chosen);
            AppChangeState stored{};
            const AppChangeState outcome = group.works[name] ? AppChangeState::SUCCESS : AppChangeState::START_FAILED;
            EXPECT_EQ(StartPlan::Settle(info, name, outcome, stored), StartPlan::Settlement::TAKEN);
            info.hasProgress = false;
        }
        EXPECT_EQ(info.results, ExpectedStart(group)) << "seed " << seed;
        EXPECT_EQ(info.progress.processing, 0U) << "seed " << seed;
    }
}

TEST(RandomPlans, TerminateRunHandsOutEachApplicationOnceAndAfterItsDependants) {
    for (unsigned seed = 0; seed < 2000; ++seed) {
        RandomGroup group(seed);
        DependGraph graph;
        for (const std::string& name : group.names) {
            graph.AddVertex(name);
            for (const std::string& dependency : group.depends[name]) {
                graph.AddEdge(dependency, name);
            }
        }
        TermAppInfo info;
        TermPlan::Open(info, {group.requested.begin(), group.requested.end()}, std::move(graph));
        std::vector<std::string> commanded;
        std::set<std::string> settled;
        for (;;) {
            std::vector<std::string> wave = TermPlan::TakeWave(info);
            TermPlan::DropUnwanted(info, wave);
            for (const std::string& name : wave) {
                EXPECT_EQ(group.requested.count(name), 1U);
                for (const std::string& dependant : group.requested) {
                    EXPECT_TRUE(group.depends[dependant].count(name) == 0 || settled.count(dependant) != 0)
                        << "seed " << seed << ": " << name << " before " << dependant;
                }
                commanded.push_back(name);
            }
            if (commanded.empty() && info.freed.empty()) {
                break;
            }
            if (commanded.empty()) {
                continue;
            }
            const auto chosen = commanded.begin() + static_cast<std::ptrdiff_t>(group.Below(commanded.size()));
            const std::string name = *chosen;
            commanded.erase(chosen);
            AppChangeState stored{};
            const AppChangeState outcome = group.works[name] ? AppChangeState::SUCCESS : AppChangeState::TERM_FAILED;
            EXPECT_EQ(TermPlan::Settle(info, name, outcome, stored), TermPlan::Settlement::TAKEN);
            TermPlan::PopVertex(info, name);
            EXPECT_TRUE(settled.insert(name).second);
        }
        EXPECT_EQ(settled, group.requested) << "seed " << seed;
        EXPECT_TRUE(info.graph.IsEmpty()) << "seed " << seed;
    }
}

}  // namespace
}  // namespace ProcMgr
