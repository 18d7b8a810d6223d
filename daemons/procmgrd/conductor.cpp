#include "daemons/procmgrd/conductor.h"

#include <chrono>
#include <cstring>

#include "daemons/procmgrd/daemon_log.h"

namespace Procmgrd {
namespace {

using ProcMgr::Message::AppStateInfo;
using ProcMgr::Message::ReportAppStateType;
using ProcMgr::Timeline::EventKind;
using ProcMgr::Timeline::EventOf;

constexpr size_t kLaunchesPerTurn = 8;
// After a launch that took longer, the others wait for the next turn.
constexpr std::chrono::milliseconds kLaunchTimePerTurn{50};

// The daemon's own stop is one deadline.
const AppKey kNobody;

void NoteReport(Timelines& timelines, const Action& action) {
    const auto state = static_cast<ReportAppStateType>(action.report.appState);
    if (state == ReportAppStateType::RUNNING_NORMAL_START || state == ReportAppStateType::RUNNING_NORMAL_RESTART) {
        timelines.Note(action.key.owner, EventOf(EventKind::RUNNING, action.key.app, action.report.pid));
    }
}

void NoteReadiness(Timelines& timelines, const Action& action) {
    if (action.appState == 0) {
        timelines.Note(action.key.owner, EventOf(EventKind::READY, action.key.app, static_cast<uint64_t>(action.pid)));
    }
}

}  // namespace

Conductor::Conductor(EventLoop& loop, Deadlines& deadlines, ProcMgr::StateFile& stateFile, Timelines& timelines,
                     ProcessHostSettings settings, ConductorNews news)
    : deadlines_(deadlines),
      timelines_(timelines),
      news_(std::move(news)),
      host_(loop, deadlines, stateFile, timelines, std::move(settings),
            {[this](const AppKey& key, ExitStatus status) { OnExited(key, status); },
             [this](const AppKey& key, uint32_t appState) { Execute(supervisor_.Reported(key, appState)); },
             news_.beat}) {
}

void Conductor::Start(const AppKey& key, AppRequest request, const ApplicationManifest* manifest,
                      const ProcMgr::OwnerIdentity& owner) {
    if (isStopping_) {
        Refuse(key, ExitReason::STOPPING);
        return;
    }
    if (manifest == nullptr && supervisor_.StateOf(key) == ProcessState::DOWN) {
        PROCMGRD_LOG(kLogError,
                     "owner %s: application %s is unknown: no manifest of the loaded configuration has this name",
                     key.owner.c_str(), key.app.c_str());
        Refuse(key, ExitReason::UNKNOWN_APP);
        return;
    }
    Launchable& launchable = launchables_[key];
    launchable.owner = owner;
    if (manifest != nullptr) {
        launchable.manifest = *manifest;
    }
    const StopRule rule{launchable.manifest.GetTermTimeOut(), launchable.manifest.GetIsForceTerm()};
    Execute(supervisor_.Start(key, std::move(request), rule));
}

void Conductor::Terminate(const AppKey& key) {
    timelines_.Note(key.owner, EventOf(EventKind::ENDING, key.app));
    Execute(supervisor_.Terminate(key));
}

void Conductor::OnDeadline(const DeadlineKey& deadline) {
    if (deadline.first == DeadlineKind::STOP) {
        KillAll();
    } else if (deadline.first == DeadlineKind::TERMINATION) {
        OnTerminationDeadline(deadline.second);
    } else {
        host_.OnDeadline(deadline);
    }
}

void Conductor::OnTerminationDeadline(const AppKey& key) {
    if (host_.HasOnlyLeftovers(key)) {
        // The application itself did end in time.
        host_.KillTree(key);
        return;
    }
    if (isStopping_ && !launchables_[key].manifest.GetIsForceTerm()) {
        // It may not run on now; it has until the deadline of the stop.
        return;
    }
    Execute(supervisor_.DeadlinePassed(key));
    if (supervisor_.StateOf(key) == ProcessState::RUNNING) {
        host_.RunsOn(key);
    }
}

bool Conductor::EndTurn() {
    const auto end = std::chrono::steady_clock::now() + kLaunchTimePerTurn;
    const auto hasTime = [end] { return std::chrono::steady_clock::now() < end; };
    for (size_t left = kLaunchesPerTurn; left > 0 && !queue_.empty() && hasTime(); --left) {
        const auto [key, request] = std::move(queue_.front());
        queue_.pop_front();
        Launch(key, request);
    }
    host_.EndTurn();
    timelines_.Flush();
    return !queue_.empty() || host_.HasMoreToDo();
}

void Conductor::Execute(const Actions& actions) {
    for (const Action& action : actions) {
        ExecuteOne(action);
    }
}

void Conductor::ExecuteOne(const Action& action) {
    switch (action.kind) {
        case Action::Kind::LAUNCH:
            queue_.emplace_back(action.key, action.request);
            break;
        case Action::Kind::TERM_TREE:
            host_.TermTree(action.key);
            break;
        case Action::Kind::KILL_TREE:
            PROCMGRD_LOG(kLogWarn, "owner %s: application %s did not end within its term_time_out and is killed",
                         action.key.owner.c_str(), action.key.app.c_str());
            host_.KillTree(action.key);
            break;
        case Action::Kind::ARM_DEADLINE:
            deadlines_.Arm(DeadlineKind::TERMINATION, action.key, action.delayMs);
            break;
        case Action::Kind::DISARM_DEADLINE:
            deadlines_.Disarm(DeadlineKind::TERMINATION, action.key);
            break;
        case Action::Kind::REPORT:
            NoteReport(timelines_, action);
            LogReport(action.key.owner, action.report);
            news_.report(action.key.owner, action.report);
            break;
        case Action::Kind::APP_REPORT:
            NoteReadiness(timelines_, action);
            PROCMGRD_LOG(kLogInfo, "owner %s: application %s (pid %d) says that it is %s", action.key.owner.c_str(),
                         action.key.app.c_str(), action.pid, action.appState == 0 ? "ready" : "stopping");
            news_.appReport(action.key, action.pid, action.appState);
            break;
    }
}

void Conductor::Launch(const AppKey& key, const AppRequest& request) {
    const Launchable& launchable = launchables_[key];
    ExitNote why{ExitReason::STOPPING, 0};
    const pid_t pid = isStopping_ ? 0 : host_.Launch(key, launchable.manifest, request, launchable.owner, why);
    if (pid > 0) {
        Execute(supervisor_.Started(key, pid));
        return;
    }
    NoteFailure(key, why);
    Execute(supervisor_.LaunchFailed(key, why));
    ForgetIfDown(key);
}

void Conductor::OnExited(const AppKey& key, ExitStatus status) {
    PROCMGRD_LOG(kLogDebug, "owner %s: application %s ended with %s %d", key.owner.c_str(), key.app.c_str(),
                 status.isSignal ? "signal" : "exit code", status.value);
    Execute(supervisor_.Exited(key, status));
    ForgetIfDown(key);
}

void Conductor::ForgetIfDown(const AppKey& key) {
    if (supervisor_.StateOf(key) == ProcessState::DOWN) {
        launchables_.erase(key);
        ContinueStop(key);
        news_.down(key.owner);
    }
}

void Conductor::NoteFailure(const AppKey& key, ExitNote why) {
    ProcMgr::Timeline::Event event = EventOf(EventKind::FAILED, key.app);
    event.reason = static_cast<uint64_t>(why.reason);
    event.detail = why.detail;
    timelines_.Note(key.owner, std::move(event));
}

void Conductor::Refuse(const AppKey& key, ExitReason reason) {
    NoteFailure(key, {reason, 0});
    AppStateInfo report;
    report.appName = key.app;
    report.appState = static_cast<uint32_t>(ReportAppStateType::TERMINATED_ABNORMAL_EXIT);
    report.reason = static_cast<uint32_t>(reason);
    LogReport(key.owner, report);
    news_.report(key.owner, report);
}

void Conductor::Stop(uint32_t timeoutMs) {
    if (isStopping_) {
        KillAll();
        return;
    }
    isStopping_ = true;
    const std::vector<AppKey> live = supervisor_.LiveApps();
    PROCMGRD_LOG(kLogEvent, "stopping: %zu applications to end within %u ms", live.size(), timeoutMs);
    for (const AppKey& key : live) {
        stopPlan_.Add(key, launchables_[key].manifest.GetDependList());
    }
    deadlines_.Arm(DeadlineKind::STOP, kNobody, timeoutMs);
    for (const AppKey& key : stopPlan_.Begin()) {
        Terminate(key);
    }
}

void Conductor::ContinueStop(const AppKey& key) {
    if (!isStopping_) {
        return;
    }
    for (const AppKey& next : stopPlan_.Ended(key)) {
        Terminate(next);
    }
}

void Conductor::KillAll() {
    for (const AppKey& key : supervisor_.LiveApps()) {
        PROCMGRD_LOG(kLogWarn, "owner %s: application %s has not ended in time for the stop and is killed",
                     key.owner.c_str(), key.app.c_str());
        Terminate(key);
        host_.KillTree(key);
    }
}

}  // namespace Procmgrd
