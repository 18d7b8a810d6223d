#include "daemons/procmgrd/supervisor.h"

namespace Procmgrd {
namespace {

using ProcMgr::Message::ReportAppStateType;

Action MakeAction(Action::Kind kind, const AppKey& key) {
    Action action{};
    action.kind = kind;
    action.key = key;
    return action;
}

Action MakeReport(const AppKey& key, pid_t pid, ReportAppStateType state, ExitNote why = {}) {
    Action action = MakeAction(Action::Kind::REPORT, key);
    action.report.appName = key.app;
    action.report.pid = static_cast<uint32_t>(pid);
    action.report.value1 = why.detail;
    action.report.appState = static_cast<uint32_t>(state);
    action.report.reason = static_cast<uint32_t>(why.reason);
    return action;
}

}  // namespace

Actions Supervisor::Start(const AppKey& key, AppRequest request, StopRule rule) {
    Record& record = records_[key];
    record.rule = rule;
    const ProcessEvent event = request.isRestart ? ProcessEvent::RESTART : ProcessEvent::START;
    record.offeredRequest = std::move(request);
    return Step(key, event);
}

Actions Supervisor::Terminate(const AppKey& key) {
    const auto found = records_.find(key);
    if (found == records_.end()) {
        return {MakeReport(key, 0, ReportAppStateType::TERMINATED_NORMAL_EXIT)};
    }
    return Step(key, ProcessEvent::TERM);
}

Actions Supervisor::Started(const AppKey& key, pid_t pid) {
    Record& record = records_[key];
    record.pid = pid;
    return Step(key, ProcessEvent::STARTED);
}

Actions Supervisor::LaunchFailed(const AppKey& key, ExitNote why) {
    Record& record = records_[key];
    record.pid = 0;
    record.exitNote = why;
    return Step(key, ProcessEvent::LAUNCH_FAILED);
}

Actions Supervisor::Exited(const AppKey& key, ExitStatus status) {
    Record& record = records_[key];
    record.hasReported = false;
    record.exitIsNormal = !status.isSignal && status.value == 0;
    record.exitNote.reason = status.isSignal ? ExitReason::KILLED_BY_SIGNAL : ExitReason::FAILED;
    record.exitNote.detail = static_cast<uint32_t>(status.value);
    return Step(key, ProcessEvent::EXITED);
}

Actions Supervisor::DeadlinePassed(const AppKey& key) {
    Record& record = records_[key];
    return Step(key, record.rule.isForced ? ProcessEvent::FORCED_DEADLINE : ProcessEvent::SOFT_DEADLINE);
}

Actions Supervisor::Reported(const AppKey& key, uint32_t appState) {
    Record& record = records_[key];
    if (record.hasReported && record.appState == appState) {
        return {};
    }
    record.offeredState = appState;
    return Step(key, ProcessEvent::APP_REPORT);
}

ProcessState Supervisor::StateOf(const AppKey& key) const {
    const auto found = records_.find(key);
    return found == records_.end() ? ProcessState::DOWN : found->second.state;
}

uint32_t Supervisor::QueryState(const AppKey& key) const {
    constexpr uint32_t kRunning = 0;
    constexpr uint32_t kNotRunning = 1;
    constexpr uint32_t kInTransition = 2;
    const ProcessState state = StateOf(key);
    if (state == ProcessState::RUNNING) {
        return kRunning;
    }
    return state == ProcessState::DOWN ? kNotRunning : kInTransition;
}

std::vector<std::string> Supervisor::LiveAppsOf(const std::string& owner) const {
    std::vector<std::string> names;
    for (auto at = records_.lower_bound({owner, {}}); at != records_.end() && at->first.owner == owner; ++at) {
        if (at->second.state != ProcessState::DOWN) {
            names.push_back(at->first.app);
        }
    }
    return names;
}

std::vector<AppKey> Supervisor::LiveApps() const {
    std::vector<AppKey> keys;
    for (const auto& [key, record] : records_) {
        if (record.state != ProcessState::DOWN) {
            keys.push_back(key);
        }
    }
    return keys;
}

Actions Supervisor::Step(const AppKey& key, ProcessEvent event) {
    const auto found = records_.find(key);
    Record& record = found->second;
    const ProcessStep& step = StepOf(record.state, event);
    record.state = step.next;
    Actions actions;
    for (const Verb verb : step.verbs) {
        Do(verb, key, record, actions);
    }
    if (record.state == ProcessState::DOWN) {
        records_.erase(found);
    }
    return actions;
}

void Supervisor::Do(Verb verb, const AppKey& key, Record& record, Actions& actions) {
    switch (verb) {
        case Verb::NOTE_REQUEST:
            record.next = std::move(record.offeredRequest);
            break;
        case Verb::LAUNCH:
            record.hasReported = false;
            record.launchedByRestart = record.next.isRestart;
            actions.push_back(MakeAction(Action::Kind::LAUNCH, key));
            actions.back().request = std::move(record.next);
            break;
        case Verb::TERM_TREE:
            actions.push_back(MakeAction(Action::Kind::TERM_TREE, key));
            actions.push_back(MakeAction(Action::Kind::ARM_DEADLINE, key));
            actions.back().delayMs = record.rule.termTimeOutMs;
            break;
        case Verb::KILL_TREE:
            actions.push_back(MakeAction(Action::Kind::KILL_TREE, key));
            break;
        case Verb::DISARM:
            actions.push_back(MakeAction(Action::Kind::DISARM_DEADLINE, key));
            break;
        case Verb::NOTE_REPORT:
            record.hasReported = true;
            record.appState = record.offeredState;
            break;
        default:
            Tell(verb, key, record, actions);
    }
}

void Supervisor::Tell(Verb verb, const AppKey& key, const Record& record, Actions& actions) {
    const auto tell = [&](ReportAppStateType state, ExitNote why = {}) {
        actions.push_back(MakeReport(key, record.pid, state, why));
    };
    switch (verb) {
        case Verb::TELL_STARTED:
            tell(record.launchedByRestart ? ReportAppStateType::RUNNING_NORMAL_RESTART
                                          : ReportAppStateType::RUNNING_NORMAL_START);
            break;
        case Verb::TELL_RUNNING:
            tell(ReportAppStateType::RUNNING_NORMAL_START);
            break;
        case Verb::TELL_LAUNCH_FAILED:
            tell(ReportAppStateType::TERMINATED_ABNORMAL_EXIT, record.exitNote);
            break;
        case Verb::TELL_STOPPED:
            tell(ReportAppStateType::TERMINATED_NORMAL_EXIT);
            break;
        case Verb::TELL_EXIT:
            if (record.exitIsNormal) {
                tell(ReportAppStateType::TERMINATED_NORMAL_EXIT);
            } else {
                tell(ReportAppStateType::TERMINATED_ABNORMAL_EXIT, record.exitNote);
            }
            break;
        case Verb::TELL_TIMEOUT:
            tell(ReportAppStateType::RUNNING_ABNORMAL_TERM_TIMEOUT);
            break;
        case Verb::PASS_REPORT:
            if (record.hasReported) {
                actions.push_back(MakeAction(Action::Kind::APP_REPORT, key));
                actions.back().pid = record.pid;
                actions.back().appState = record.appState;
            }
            break;
        default:
            break;
    }
}

}  // namespace Procmgrd
