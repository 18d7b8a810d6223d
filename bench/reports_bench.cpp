/// What a report costs: how many reports a second go through the server to the subscriber, and how long it takes from a
/// report's arrival until the request that it sets free goes out.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <vector>

#include "app_manager/application_manager.h"
#include "bench/bench_process_manager.h"
#include "grp_owner/grp_owner_server.h"
#include "platform/include/parse_and_depend.h"
#include "pm_agent/procmgr_agent.h"

namespace {

using ProcMgr::ApplicationManager;
using ProcMgr::Message::AppStateInfo;
using Clock = std::chrono::steady_clock;

constexpr size_t kApplications = 2000;
constexpr size_t kBatch = 50;
constexpr size_t kRounds = 20;
constexpr int kTimeoutMs = 600000;
constexpr uint32_t kNormalRestart = 1;

std::string NameOf(size_t index) {
    return "app" + std::to_string(100000 + index);
}

/// A chain, so that each report sets one request free. Returns the names.
std::vector<AppInfoForServer> SetChain() {
    std::vector<AppInfoForServer> request;
    std::vector<ApplicationManifest> manifests;
    std::unordered_map<std::string, std::set<std::string>> depends;
    for (size_t index = 0; index < kApplications; ++index) {
        ApplicationAttributes attributes;
        attributes.appName = NameOf(index);
        if (index > 0) {
            attributes.depends = {NameOf(index - 1)};
        }
        request.push_back({attributes.appName, {}, {}});
        depends[attributes.appName] = attributes.depends;
        manifests.emplace_back(std::move(attributes));
    }
    ParseAndDepend::GetInstance().SetApplicationDependsMap(depends);
    ApplicationManager::GetInstance().UpdateApplicationList(manifests);
    return request;
}

double Percentile(const std::vector<double>& sorted, size_t percent) {
    return sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
}

bool MeasureLatency(ProcMgr::GrpOwnerServer& server) {
    std::vector<AppChangeInfo> results;
    if (!server.ChangeApp({}, SetChain(), {}, results, kTimeoutMs)) {
        (void)fprintf(stderr, "the chain could not be started\n");
        return false;
    }
    std::vector<double> latencies = BenchProcessManager::Get().TakeLatencies();
    std::sort(latencies.begin(), latencies.end());
    (void)printf("from a report's arrival to the next wave's request, chain of %zu: median %.1f us, 99th %.1f us\n",
                 kApplications, Percentile(latencies, 50), Percentile(latencies, 99));
    return true;
}

/// Restart reports of applications that run: each is told to the subscriber twice, off and on.
void MeasureThroughput(ProcMgr::GrpOwnerServer& server) {
    std::atomic<size_t> told{0};
    ProcMgr::GrpOwnerServer::SubscribeAppState([&told](const std::string&, int, ProcMgr::AppReportState) {
        ++told;
        return true;
    });
    const auto begin = Clock::now();
    for (size_t round = 0; round < kRounds; ++round) {
        for (size_t first = 0; first < kApplications; first += kBatch) {
            std::vector<AppStateInfo> batch;
            for (size_t index = first; index < first + kBatch; ++index) {
                batch.push_back({NameOf(index), 7, 0, kNormalRestart, 0});
            }
            server.ReportAppStateFromProcMgr(batch);
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    (void)printf("reports through the server: %.0f a second, in batches of %zu; notices to the subscriber: %zu\n",
                 static_cast<double>(kRounds * kApplications) / seconds, kBatch, told.load());
}

}  // namespace

int main() {
    ProcMgr::GrpOwnerServer server;
    ProcMgr::ProcMgrAgent& agent = ProcMgr::ProcMgrAgent::GetInstance();
    if (!agent.RegAppStateChangeCallBackImpl(
            [&server](const std::vector<AppStateInfo>& infos) { server.ReportAppStateFromProcMgr(infos); })) {
        return EXIT_FAILURE;
    }
    const bool ok = MeasureLatency(server);
    if (ok) {
        MeasureThroughput(server);
    }
    agent.ClosePipe();
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}
