/// What must be true of the answers of the library, and of everything in the end.
#include <algorithm>
#include <set>

#include "app_manager/application_manager.h"
#include "tests/simulator/group_manifests.h"
#include "tests/simulator/simulated_group.h"
#include "tests/simulator/watchdog.h"

using ProcMgr::ApplicationManager;
using ProcMgr::AppStateType;
using Report = SimulatedProcessManager::Report;

namespace {

// Long enough for every machine.
constexpr int kPatienceMs = 60000;

bool IsDown(AppStateType state) {
    return state == AppStateType::INIT_STATE || state == AppStateType::TERMINATED_STATE;
}

bool IsAmong(const std::string& name, const std::vector<AppInfoForServer>& entries) {
    return std::any_of(entries.begin(), entries.end(), [&](const AppInfoForServer& entry) {
        return entry.appName == name || (IsGroupTemplate(entry.appName) && name.rfind(entry.appName + "@", 0) == 0);
    });
}

}  // namespace

void SimulatedGroup::CheckAnswer(const Request& request, bool ok, const std::vector<AppChangeInfo>& answer) {
    const auto succeeded = std::count_if(answer.begin(), answer.end(), [](const AppChangeInfo& entry) {
        return entry.state == AppChangeState::SUCCESS;
    });
    const auto failed = static_cast<std::ptrdiff_t>(answer.size()) - succeeded;
    successes_ += static_cast<size_t>(succeeded);
    failures_ += static_cast<size_t>(failed);
    if (ok && failed > 0) {
        Complain("a change was answered with true although an application failed");
    }
    if (ok || !answer.empty()) {
        CheckNames(request, answer);
    }
}

void SimulatedGroup::CheckNames(const Request& request, const std::vector<AppChangeInfo>& answer) {
    std::map<std::string, int> counts;
    for (const AppChangeInfo& entry : answer) {
        if (++counts[entry.appName] > 1) {
            Complain("the answer names " + entry.appName + " twice");
        }
        if (!IsAmong(entry.appName, request.term) && !IsAmong(entry.appName, request.start) &&
            !IsAmong(entry.appName, request.restart)) {
            Complain("the answer names " + entry.appName + ", which was not asked for");
        }
    }
    // A list is carried out as a whole. The first one always is; each other one if the answer holds any of it.
    bool isFirst = true;
    for (const auto* list : {&request.term, &request.start, &request.restart}) {
        const bool isCarriedOut =
            isFirst || std::any_of(list->begin(), list->end(),
                                   [&](const AppInfoForServer& asked) { return counts.count(asked.appName) != 0; });
        isFirst = isFirst && list->empty();
        for (const AppInfoForServer& asked : *list) {
            if (isCarriedOut && counts.count(asked.appName) == 0 && !IsGroupTemplate(asked.appName)) {
                Complain("the answer does not name " + asked.appName + ": " + Text(request));
            }
        }
    }
}

bool SimulatedGroup::IsUnchecked(const std::string& name) const {
    return isShifting_ && GroupShifting().count(name) != 0;
}

bool SimulatedGroup::HasStarted(const std::string& name, size_t from) const {
    return manager_.HasReported(name, {Report::RUNNING_NORMAL_START, Report::RUNNING_NORMAL_RESTART}, from) ||
           manager_.HasReportedItself(name, from);
}

bool SimulatedGroup::WasStopped(const Before& before, const std::string& name) const {
    const auto found = before.states.find(name);
    return found == before.states.end() || IsDown(found->second) ||
           manager_.HasReported(name, SimulatedProcessManager::Ends(), before.time) ||
           manager_.MayBeUnsent(name, before.time);
}

void SimulatedGroup::CheckSuccess(const Request& request, const Before& before, const std::string& name) {
    if (IsAmong(name, request.term)) {
        if (!WasStopped(before, name)) {
            Complain(name + " counts as terminated although it was in state " +
                     std::to_string(static_cast<uint32_t>(before.states.at(name))) +
                     " and nothing reported its end: " + Text(request));
        }
        return;
    }
    const auto found = before.states.find(name);
    // To start what runs is a success, whether it ran all the time or its termination was given up meanwhile.
    const bool ran = (found != before.states.end() && found->second == AppStateType::RUNNING_STATE) ||
                     manager_.HasReported(name, {Report::RUNNING_ABNORMAL_TERM_TIMEOUT}, before.time);
    if (!(ran && IsAmong(name, request.start)) && !HasStarted(name, before.time)) {
        Complain(name + " counts as started although nothing reported that it runs: " + Text(request));
    }
}

void SimulatedGroup::CheckThatEverythingStopsAndStarts() {
    const Watchdog watchdog("the final checks");
    if (!server_.ReloadCfg()) {
        Complain("the manager was not ready for the next reload");
    }
    if (!server_.StopAllApp()) {
        Complain("not everything could be stopped");
    }
    if (!manager_.WaitUntilQuiet()) {
        Complain("reports and requests never came to rest after the stop");
    }
    std::vector<AppChangeInfo> answer;
    if (!server_.ChangeApp({}, {}, {}, answer, kPatienceMs)) {
        Complain("the manager was not ready for the next change");
    }
    if (!ApplicationManager::GetInstance().StartBaseApplication()) {
        Complain("not every base application could be started again");
    }
    if (!server_.ChangeApp({}, GroupEntries(GroupDrivingNames()), GroupEntries({"lidar"}), answer, kPatienceMs)) {
        Complain("not everything else could be started and restarted again");
    }
    CheckThatEverythingRuns();
    CheckThatNothingIsLeft();
}

void SimulatedGroup::CheckThatEverythingRuns() {
    std::vector<std::string> names;
    std::vector<AppStatus> statuses;
    if (!server_.QueryAppList(names) || !server_.QueryAppState(names, statuses, kPatienceMs)) {
        Complain("the states of the applications could not be had");
    }
    const std::map<std::string, uint32_t> processes = manager_.Running();
    for (const AppStatus& status : statuses) {
        const auto process = processes.find(status.appName);
        const auto app = ApplicationManager::GetInstance().FindApplicationSilently(status.appName);
        const bool runs = process != processes.end() && app != nullptr && app->IsAppRunning();
        if (!runs || status.state != 0 || status.pid != static_cast<int32_t>(process->second)) {
            Complain(status.appName + " does not run after everything was started, or is answered otherwise");
        }
    }
    if (statuses.size() != GroupNames().size() - 1) {
        Complain("not all applications are listed");
    }
}

void SimulatedGroup::CheckThatNothingIsLeft() {
    if (!server_.StopAllApp()) {
        Complain("not everything could be stopped in the end");
    }
    for (const auto& process : manager_.Running()) {
        Complain(process.first + " still runs after everything was stopped");
    }
}
