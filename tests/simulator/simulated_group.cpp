#include "tests/simulator/simulated_group.h"

#include <algorithm>

#include "app_manager/application_manager.h"
#include "app_manager/effective_wait.h"
#include "platform/include/owner_link.h"
#include "pm_agent/procmgr_agent.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/simulator/group_manifests.h"
#include "tests/simulator/watchdog.h"

using ProcMgr::ApplicationManager;
using ProcMgr::AppReportState;
using ProcMgr::AppStateType;
using ProcMgr::ProcMgrAgent;

namespace {

constexpr int kStopTimeoutMs = 5000;
constexpr int kQueryTimeoutMs = 200;

bool IsInstance(const std::string& name) {
    return name.rfind("cam@", 0) == 0;
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

/// What the calling thread has waited since this was made.
class WaitMeter {
public:
    bool IsWithin(std::chrono::milliseconds allowed) const { return ScaledClocks::Waited() - before_ <= allowed; }

private:
    const ScaledClocks::Nanoseconds before_ = ScaledClocks::Waited();
};

}  // namespace

SimulatedGroup::SimulatedGroup(uint32_t seed) : random_(seed), manager_(seed, GroupSelfReporting()) {
    const Watchdog watchdog("setting up");
    FakeLog::Get().SetThreshold(100);
    FakeManifests::Get().SetManifests(GroupManifests(GroupVariant::FULL));
    reportServer = &server_;
    OwnerSetAppReportHandler(OnAppReport);
    ProcMgrAgent& agent = ProcMgrAgent::GetInstance();
    bool ok = agent.RegAppStateChangeCallBackImpl([this](const std::vector<ProcMgr::Message::AppStateInfo>& infos) {
        manager_.NoteReport(infos.front());
        server_.ReportAppStateFromProcMgr(infos);
    });
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
    side_ =
        std::make_unique<SideRequests>(static_cast<uint32_t>(random_()), [this](std::mt19937& random) { Ask(random); });
    for (int step = 0; step < steps; ++step) {
        Step();
    }
    side_.reset();
    TurnWell();
    CheckThatEverythingStopsAndStarts();
    for (const std::string& complaint : manager_.Complaints()) {
        Complain(complaint);
    }
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
    odds.late = Pick(random_, 0, 5);
    odds.sendFails = Pick(random_, 0, 8);
    odds.longestDelay = std::chrono::microseconds(Pick(random_, 0, 4000));
    manager_.SetOdds(odds);
    hasRival_ = Pick(random_, 0, 2) == 0;
    isShifting_ = Pick(random_, 0, 2) == 0;
    if (isShifting_) {
        manager_.SetShifting(GroupShifting());
    }
    ApplicationManager::GetInstance().UseClocks(fastClocks_);
}

void SimulatedGroup::TurnWell() {
    const Watchdog watchdog("settling");
    manager_.SetOdds({});
    // From here on everything has to succeed, so a slow machine must not run into a time-out.
    ApplicationManager::GetInstance().UseClocks(ProcMgr::WaitClocks::System());
    FakePipe::Get().ScriptAnswer({});
    FakeManifests::Get().SetManifests(GroupManifests(GroupVariant::FULL));
    manager_.NoteNothingOnItsWay();
    if (!manager_.WaitUntilQuiet()) {
        Complain("reports and requests never came to rest");
    }
}

void SimulatedGroup::Step() {
    if (Pick(random_, 0, 9) == 0) {
        StopAll();
    } else {
        Change();
    }
    CheckThatTheNextChangeIsAccepted();
}

void SimulatedGroup::CheckThatTheNextChangeIsAccepted() {
    std::vector<AppChangeInfo> answer;
    if (!hasRival_ && !server_.ChangeApp({}, {}, {}, answer, 0)) {
        Complain("the manager was not ready for the next change");
    }
}

void SimulatedGroup::Ask(std::mt19937& random) {
    const Watchdog watchdog("a request beside the changes");
    std::vector<std::string> names;
    switch (Pick(random, 0, 7)) {
        case 0:
            return AskForReload(random);
        case 1:
        case 2:
            return AskForStates();
        case 3:
            static_cast<void>(server_.QueryAppList(names));
            return;
        case 4:
            return AskForVerification(random);
        case 5:
            static_cast<void>(server_.ApplicationDump());
            return;
        case 6:
            if (hasRival_) {
                return ChangeBeside(random);
            }
            [[fallthrough]];
        default:
            // One thread at a time starts the base applications.
            static_cast<void>(ApplicationManager::GetInstance().StartBaseApplication());
            return;
    }
}

void SimulatedGroup::AskForReload(std::mt19937& random) {
    const auto variant = isShifting_ ? static_cast<GroupVariant>(Pick(random, 0, 3)) : GroupVariant::FULL;
    const int parseResult = Pick(random, 0, 4) == 0 ? 1 : 0;
    FakeManifests::Get().SetManifests(GroupManifests(variant), parseResult);
    const bool isRefused = Pick(random, 0, 4) == 0;
    FakePipe::Get().SetAnswer({0, isRefused ? "1" : "0"});
    const bool ok = server_.ReloadCfg();
    FakePipe::Get().SetAnswer({});
    if (ok && (isRefused || parseResult != 0)) {
        Complain("a reload that the process manager or the parser refused was answered with true");
    }
}

void SimulatedGroup::AskForStates() {
    const std::vector<std::string> names = {"power", "lidar", "cam@1", "nobody"};
    std::vector<AppStatus> statuses;
    const WaitMeter meter;
    const bool ok = server_.QueryAppState(names, statuses, kQueryTimeoutMs);
    if (!meter.IsWithin(ProcMgr::EffectiveWait(kQueryTimeoutMs))) {
        Complain("a query waited longer than its time-out allows");
    }
    if (ok ? statuses.size() != names.size() : !statuses.empty()) {
        Complain("a query was answered with another number of states than names");
        return;
    }
    for (size_t at = 0; at < statuses.size(); ++at) {
        if (statuses[at].appName != names[at]) {
            Complain("a query was answered in another order");
        }
    }
    if (ok && (statuses.back().pid != -1 || statuses.back().state != 1)) {
        Complain("a query knows an application that does not exist");
    }
}

void SimulatedGroup::AskForVerification(std::mt19937& random) {
    std::map<std::string, unsigned int> apps = {{"nobody", 1}, {"power", 0}};
    for (const std::string& name : GroupDrivingNames()) {
        if (Pick(random, 0, 2) == 0) {
            apps[name] = static_cast<unsigned int>(Pick(random, 0, 2));
            manager_.NoteFoundRunning(name);
        }
    }
    static_cast<void>(server_.GrpOwnerVerifyApp(apps));
}

SimulatedGroup::Request SimulatedGroup::RandomRequest(std::mt19937& random) {
    std::vector<std::string> names = GroupNames();
    std::shuffle(names.begin(), names.end(), random);
    if (Pick(random, 0, 9) == 0) {
        names.insert(names.begin(), "ghost");
    }
    names.resize(static_cast<size_t>(Pick(random, 0, 6)));
    // No application stands in two lists, not as an instance either: what an answer's entry speaks of would be open.
    if (std::count_if(names.begin(), names.end(), IsGroupTemplate) > 0) {
        names.erase(std::remove_if(names.begin(), names.end(), IsInstance), names.end());
    }
    std::vector<std::string> lists[3];
    for (const std::string& name : names) {
        lists[Pick(random, 0, 2)].push_back(name);
    }
    return {GroupEntries(lists[0]), GroupEntries(lists[1]), GroupEntries(lists[2]), Pick(random, 200, 3000)};
}

// A template without instances asks for nothing.
bool SimulatedGroup::AsksForApplications(const Request& request) {
    const auto& first = !request.term.empty() ? request.term : !request.start.empty() ? request.start : request.restart;
    return std::any_of(first.begin(), first.end(),
                       [](const AppInfoForServer& entry) { return !IsGroupTemplate(entry.appName); });
}

// Everything that came before this moment has then been handled, and nothing is asked for by the side thread, so that
// nothing older can explain an answer.
SimulatedGroup::Before SimulatedGroup::Note() {
    Before before;
    side_->Between([this, &before] {
        before.time = manager_.Now();
        static_cast<void>(FakePipe::Get().WaitUntilDelivered());
        manager_.NoteNothingOnItsWay();
        for (const std::string& name : GroupNames()) {
            const auto app = ApplicationManager::GetInstance().FindApplicationSilently(name);
            if (app != nullptr) {
                before.states[name] = app->GetAppStateType();
            }
        }
    });
    return before;
}

void SimulatedGroup::Change() {
    const Watchdog watchdog("a change");
    const Request request = RandomRequest(random_);
    const Before before = Note();
    std::vector<AppChangeInfo> answer;
    const bool ok = Carry(request, answer);
    if (!hasRival_ && !ok && answer.empty() && AsksForApplications(request)) {
        Complain("a change was refused although no other one was running");
    }
    for (const AppChangeInfo& entry : answer) {
        if (entry.state == AppChangeState::SUCCESS && !IsUnchecked(entry.appName)) {
            CheckSuccess(request, before, entry.appName);
        }
    }
}

// What else goes on here can't be held still, so only the form of the answer is checked.
void SimulatedGroup::ChangeBeside(std::mt19937& random) {
    std::vector<AppChangeInfo> answer;
    static_cast<void>(Carry(RandomRequest(random), answer));
}

// Terminations have their time for each wave, starts and restarts have it as a whole.
int SimulatedGroup::MostWaits(const Request& request) {
    const bool hasTemplate = std::any_of(request.term.begin(), request.term.end(),
                                         [](const AppInfoForServer& entry) { return IsGroupTemplate(entry.appName); });
    const size_t terminated = request.term.size() + (hasTemplate ? GroupDrivingNames().size() : 0);
    const size_t waves = request.term.empty() ? 0 : terminated + 1;
    return static_cast<int>(waves) + (request.start.empty() ? 0 : 1) + (request.restart.empty() ? 0 : 1);
}

bool SimulatedGroup::Carry(const Request& request, std::vector<AppChangeInfo>& answer) {
    const WaitMeter meter;
    const bool ok = server_.ChangeApp(request.term, request.start, request.restart, answer, request.timeoutMs);
    if (!meter.IsWithin(MostWaits(request) * ProcMgr::EffectiveWait(request.timeoutMs))) {
        Complain("a change waited longer than its time-out allows: " + Text(request));
    }
    CheckAnswer(request, ok, answer);
    return ok;
}

void SimulatedGroup::StopAll() {
    const Watchdog watchdog("a stop of everything");
    const Before before = Note();
    const WaitMeter meter;
    const bool ok = server_.StopAllApp();
    const int waits = 2 * 3 * static_cast<int>(GroupNames().size() + 2);
    if (!meter.IsWithin(waits * ProcMgr::EffectiveWait(kStopTimeoutMs))) {
        Complain("a stop of everything waited longer than its time-out allows");
    }
    if (!ok) {
        return;
    }
    for (const auto& entry : before.states) {
        if (!IsUnchecked(entry.first) && !WasStopped(before, entry.first)) {
            Complain("everything counts as stopped, but nothing reported the end of " + entry.first);
        }
    }
}

std::string SimulatedGroup::Text(const Request& request) {
    return ::Text("terminate", request.term) + ::Text(", start", request.start) + ::Text(", restart", request.restart) +
           ", " + std::to_string(request.timeoutMs) + " ms";
}

void SimulatedGroup::Complain(const std::string& text) {
    const std::lock_guard<std::mutex> lock(complaintsMutex_);
    complaints_.push_back(text);
}
