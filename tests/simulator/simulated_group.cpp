#include "tests/simulator/simulated_group.h"

#include <algorithm>
#include <functional>

#include "app_manager/application_manager.h"
#include "platform/include/owner_link.h"
#include "pm_agent/procmgr_agent.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/simulator/watchdog.h"

using ProcMgr::ApplicationManager;
using ProcMgr::AppReportState;
using ProcMgr::AppStateType;
using ProcMgr::ProcMgrAgent;
using Report = SimulatedProcessManager::Report;

namespace {

const std::vector<std::string>& Names() {
    static const auto& names = *new std::vector<std::string>{
        "power", "clock", "hub", "lidar", "camera", "fusion", "drive", "arm", "map", "cam@1", "cam@2", "cam@3", "cam"};
    return names;
}

std::vector<ApplicationManifest> Manifests() {
    return {
        Manifest("power").AutoBoot(),
        Manifest("clock").AutoBoot().DependsOn({"power"}).Restart("on-failure"),
        Manifest("hub").AutoBoot().DependsOn({"clock"}),
        Manifest("lidar").AutoBoot().DependsOn({"hub"}).Reporting().Restart("on-forever"),
        Manifest("camera").AutoBoot().DependsOn({"hub"}).Restart("on-failure"),
        Manifest("fusion").AutoBoot().DependsOn({"lidar", "camera"}).Reporting(),
        Manifest("drive").DependsOn({"fusion"}).Restart("on-failure"),
        Manifest("arm").DependsOn({"drive", "hub"}),
        Manifest("map").DependsOn({"clock"}).Reporting(),
        Manifest("cam").Template().DependsOn({"hub"}),
    };
}

bool IsTemplate(const std::string& name) {
    return name == "cam";
}

std::vector<AppInfoForServer> Entries(const std::vector<std::string>& names) {
    std::vector<AppInfoForServer> entries;
    for (const std::string& name : names) {
        entries.push_back({name, {}, {}});
    }
    return entries;
}

bool IsAmong(const std::string& name, const std::vector<AppInfoForServer>& entries) {
    return std::any_of(entries.begin(), entries.end(), [&](const AppInfoForServer& entry) {
        return entry.appName == name || (IsTemplate(entry.appName) && name.rfind(entry.appName + "@", 0) == 0);
    });
}

std::string Text(const char* list, const std::vector<AppInfoForServer>& entries) {
    std::string text = list;
    for (const AppInfoForServer& entry : entries) {
        text += " " + entry.appName;
    }
    return text;
}

int Pick(std::mt19937& random, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
}

ProcMgr::GrpOwnerServer* reportServer = nullptr;

void OnAppReport(const char* name, size_t nameLen, int pid, uint32_t /*state*/) {
    reportServer->ReportAppStateFromApp(std::string(name, nameLen), pid, AppReportState::SWITCH_ON);
}

}  // namespace

SimulatedGroup::SimulatedGroup(uint32_t seed) : random_(seed), manager_(seed, {"lidar", "fusion", "map"}) {
    const Watchdog watchdog("setting up");
    FakeLog::Get().SetThreshold(100);
    FakeManifests::Get().SetManifests(Manifests());
    reportServer = &server_;
    OwnerSetAppReportHandler(OnAppReport);
    ProcMgrAgent& agent = ProcMgrAgent::GetInstance();
    bool ok = agent.RegAppStateChangeCallBackImpl(
        [this](const std::vector<ProcMgr::Message::AppStateInfo>& infos) { server_.ReportAppStateFromProcMgr(infos); });
    ok = ok && agent.RegQueryAppStateCallBackImpl([this](const std::map<std::string, unsigned int>& states) {
        server_.QueryAppStateRespFromProcMgr(states);
    });
    if (!ok || !ApplicationManager::GetInstance().ApplicationMgrInit("/group")) {
        Complain("the manager could not be set up");
    }
}

// Nothing may be delivered any more when the server and, at exit, the manager go.
SimulatedGroup::~SimulatedGroup() {
    ProcMgrAgent::GetInstance().ClosePipe();
}

std::vector<std::string> SimulatedGroup::Round(int steps) {
    TurnBad();
    std::atomic<bool> done{false};
    std::thread disturber([this, seed = static_cast<uint32_t>(random_()), &done] { DisturbUntilDone(seed, done); });
    for (int step = 0; step < steps; ++step) {
        FakePipe::Get().ScriptSend(Pick(random_, 0, 9) == 0 ? std::vector<int>{-5} : std::vector<int>{});
        Change(random_, true);
    }
    done = true;
    disturber.join();
    TurnWell();
    CheckThatEverythingStopsAndStarts();
    return complaints_;
}

void SimulatedGroup::TurnBad() {
    SimulatedOdds odds;
    odds.drop = Pick(random_, 0, 8);
    odds.twice = Pick(random_, 0, 15);
    odds.startFails = Pick(random_, 0, 15);
    odds.termTimesOut = Pick(random_, 0, 15);
    odds.crashes = Pick(random_, 0, 15);
    odds.queryUnanswered = Pick(random_, 0, 20);
    odds.longestDelay = std::chrono::microseconds(Pick(random_, 0, 4000));
    manager_.SetOdds(odds);
    ApplicationManager::GetInstance().UseClocks(fastClocks_);
}

void SimulatedGroup::TurnWell() {
    const Watchdog watchdog("settling");
    manager_.SetOdds({});
    // From here on everything has to succeed, so a slow machine must not run into a time-out.
    ApplicationManager::GetInstance().UseClocks(ProcMgr::WaitClocks::System());
    FakePipe::Get().ScriptSend({});
    if (!manager_.WaitUntilQuiet()) {
        Complain("reports and requests never came to rest");
    }
}

void SimulatedGroup::DisturbUntilDone(uint32_t seed, const std::atomic<bool>& done) {
    std::mt19937 random(seed);
    while (!done) {
        Ask(random);
    }
}

void SimulatedGroup::Ask(std::mt19937& random) {
    const Watchdog watchdog("a request beside the changes");
    ApplicationManager& manager = ApplicationManager::GetInstance();
    std::vector<std::string> names;
    std::vector<AppStatus> statuses;
    switch (Pick(random, 0, 6)) {
        case 0:
            static_cast<void>(server_.ReloadCfg());
            return;
        case 1:
        case 2:
            static_cast<void>(server_.QueryAppState({"power", "lidar", "cam@1", "nobody"}, statuses, 200));
            return;
        case 3:
            static_cast<void>(server_.QueryAppList(names));
            return;
        case 4:
            static_cast<void>(server_.GrpOwnerVerifyApp({{"nobody", 1}, {"power", 0}}));
            return;
        case 5:
            static_cast<void>(server_.ApplicationDump());
            return;
        default:
            // One thread at a time starts the base applications.
            static_cast<void>(manager.StartBaseApplication());
            return;
    }
}

SimulatedGroup::Request SimulatedGroup::RandomRequest(std::mt19937& random) {
    std::vector<std::string> names = Names();
    std::shuffle(names.begin(), names.end(), random);
    if (Pick(random, 0, 9) == 0) {
        names.insert(names.begin(), "ghost");
    }
    names.resize(static_cast<size_t>(Pick(random, 0, 6)));
    // No application stands in two lists, not as an instance either: what an answer's entry speaks of would be open.
    const auto isInstance = [](const std::string& name) { return name.rfind("cam@", 0) == 0; };
    if (std::count_if(names.begin(), names.end(), IsTemplate) > 0) {
        names.erase(std::remove_if(names.begin(), names.end(), isInstance), names.end());
    }
    std::vector<std::string> lists[3];
    for (const std::string& name : names) {
        lists[Pick(random, 0, 2)].push_back(name);
    }
    return {Entries(lists[0]), Entries(lists[1]), Entries(lists[2]), Pick(random, 200, 3000)};
}

// A template without instances asks for nothing.
bool SimulatedGroup::AsksForApplications(const Request& request) {
    const auto& first = !request.term.empty() ? request.term : !request.start.empty() ? request.start : request.restart;
    return std::any_of(first.begin(), first.end(),
                       [](const AppInfoForServer& entry) { return !IsTemplate(entry.appName); });
}

SimulatedGroup::Before SimulatedGroup::Note(const Request& request) const {
    Before before;
    before.time = manager_.Now();
    // Everything that came before this moment has then been handled, so that nothing older can explain an answer.
    static_cast<void>(FakePipe::Get().WaitUntilDelivered());
    for (const auto* list : {&request.term, &request.start, &request.restart}) {
        for (const AppInfoForServer& entry : *list) {
            const auto app = ApplicationManager::GetInstance().FindApplicationSilently(entry.appName);
            if (app != nullptr) {
                before.states[entry.appName] = app->GetAppStateType();
            }
        }
    }
    return before;
}

void SimulatedGroup::Change(std::mt19937& random, bool alone) {
    const Watchdog watchdog("a change");
    const Request request = RandomRequest(random);
    const Before before = Note(request);
    std::vector<AppChangeInfo> answer;
    const bool ok = server_.ChangeApp(request.term, request.start, request.restart, answer, request.timeoutMs);
    if (alone && !ok && answer.empty() && AsksForApplications(request)) {
        Complain("a change was refused although no other one was running");
    }
    CheckAnswer(request, before, ok, answer);
}

void SimulatedGroup::CheckAnswer(const Request& request, const Before& before, bool ok,
                                 const std::vector<AppChangeInfo>& answer) {
    const bool allWell = std::all_of(answer.begin(), answer.end(),
                                     [](const AppChangeInfo& entry) { return entry.state == AppChangeState::SUCCESS; });
    if (ok && !allWell) {
        Complain("a change was answered with true although an application failed");
    }
    CheckNames(request, answer);
    for (const AppChangeInfo& entry : answer) {
        const bool isSuccess = entry.state == AppChangeState::SUCCESS;
        ++(isSuccess ? successes_ : failures_);
        if (isSuccess) {
            CheckSuccess(request, before, entry);
        }
    }
}

void SimulatedGroup::CheckNames(const Request& request, const std::vector<AppChangeInfo>& answer) {
    for (const AppChangeInfo& entry : answer) {
        if (!IsAmong(entry.appName, request.term) && !IsAmong(entry.appName, request.start) &&
            !IsAmong(entry.appName, request.restart)) {
            Complain("the answer names " + entry.appName + ", which was not asked for");
        }
    }
    const auto& first = !request.term.empty() ? request.term : !request.start.empty() ? request.start : request.restart;
    for (const AppInfoForServer& asked : first) {
        const bool isAnswered = std::any_of(answer.begin(), answer.end(),
                                            [&](const AppChangeInfo& entry) { return entry.appName == asked.appName; });
        if (!isAnswered && !IsTemplate(asked.appName)) {
            Complain("the answer does not name " + asked.appName);
        }
    }
}

std::string SimulatedGroup::Text(const Request& request) {
    return ::Text("terminate", request.term) + ::Text(", start", request.start) + ::Text(", restart", request.restart) +
           ", " + std::to_string(request.timeoutMs) + " ms";
}

bool SimulatedGroup::HasStarted(const std::string& name, size_t from) const {
    return manager_.HasReported(name, {Report::RUNNING_NORMAL_START, Report::RUNNING_NORMAL_RESTART}, from) ||
           manager_.HasReportedItself(name, from);
}

void SimulatedGroup::CheckSuccess(const Request& request, const Before& before, const AppChangeInfo& entry) {
    const std::string& name = entry.appName;
    const auto found = before.states.find(name);
    const bool isKnown = found != before.states.end();
    const AppStateType state = isKnown ? found->second : AppStateType::INIT_STATE;
    if (IsAmong(name, request.term)) {
        const bool wasDown = state == AppStateType::INIT_STATE || state == AppStateType::TERMINATED_STATE;
        const std::set<Report> ends = {Report::TERMINATED_NORMAL_EXIT, Report::TERMINATED_ABNORMAL_EXIT};
        if (!wasDown && !manager_.HasReported(name, ends, before.time)) {
            Complain(name + " counts as terminated although it was in state " +
                     std::to_string(static_cast<uint32_t>(state)) + " and nothing reported its end: " + Text(request));
        }
        return;
    }
    const bool ran = state == AppStateType::RUNNING_STATE && IsAmong(name, request.start);
    if (!ran && !HasStarted(name, before.time)) {
        Complain(name + " counts as started although nothing reported that it runs");
    }
}

void SimulatedGroup::CheckThatEverythingStopsAndStarts() {
    const Watchdog watchdog("the final checks");
    std::vector<AppChangeInfo> answer;
    if (!server_.ChangeApp({}, {}, {}, answer, 0)) {
        Complain("the manager was not ready for the next change");
    }
    if (!server_.StopAllApp()) {
        Complain("not everything could be stopped");
    }
    if (!manager_.WaitUntilQuiet()) {
        Complain("reports and requests never came to rest after the stop");
    }
    if (!ApplicationManager::GetInstance().StartBaseApplication()) {
        Complain("not every base application could be started again");
    }
    for (const std::string& name : ApplicationManager::GetInstance().BaseAppNames()) {
        const auto app = ApplicationManager::GetInstance().FindApplicationSilently(name);
        if (app == nullptr || !app->IsAppRunning()) {
            Complain(name + " does not run after everything was started");
        }
    }
}

void SimulatedGroup::Complain(const std::string& text) {
    const std::lock_guard<std::mutex> lock(complaintsMutex_);
    complaints_.push_back(text);
}
