#include "grp_owner/grp_owner_server.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "app_manager/application_manager.h"
#include "common/grp_owner_log.h"
#include "grp_owner/app_infos.h"
#include "platform/include/heartbeat.h"

namespace ProcMgr {

namespace {

constexpr int kStopTimeoutMs = 5000;
constexpr int kMaxStopAttempts = 3;

constexpr int kHeartBeatLost = 1;
constexpr int kHeartBeatRecovered = 0;

constexpr unsigned int kLastQueryState = 2;

void RestForOneSecond() {
    timespec left{1, 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

std::string ArgumentText(const std::vector<std::string>& args) {
    std::string text;
    for (const std::string& arg : args) {
        text += arg;
        text += ' ';
    }
    return text;
}

void AnnounceTermination(const std::string& name, const std::string& args) {
    // The process is still there; its id is withheld because the news is about the request.
    GrpOwnerServer::NotifyAppState(name, 0, AppReportState::ACTIVELY_EXIT);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "ChangeApp: termApplist: appName:%s args:%s", name.c_str(),
                  args.c_str());
}

void AnnounceStart(const std::string& name, const std::string& args) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "ChangeApp: startAppList: appName:%s args:%s", name.c_str(),
                  args.c_str());
}

void AnnounceRestart(const std::string& name, const std::string& args) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "ChangeApp: restartAppList: appName:%s args:%s", name.c_str(),
                  args.c_str());
}

/// One of the three lists of a change, and what is said of each of its entries.
struct ChangeList {
    const std::vector<AppInfoForServer>& apps;
    void (*announce)(const std::string& name, const std::string& args);
};

/// One half of stop-all: which applications it ends first, and its messages.
struct StopStage {
    std::vector<std::string> (*appNames)();
    void (*logBegin)();
    void (*logFailed)(int attempt, const AppChangeInfo& info);
    void (*logEnd)(bool ok);
};

std::vector<std::string> DrivingAppsToStop() {
    return ApplicationManager::GetInstance().DrivingAppNamesToStop();
}

void LogDrivingBegin() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "StopAllApp term driving app begin.");
}

void LogDrivingFailed(int attempt, const AppChangeInfo& info) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "StopAllApp drivingAppTermList %d loop: %s term failed state: %u", attempt, info.appName.c_str(),
                  static_cast<uint32_t>(info.state));
}

void LogDrivingEnd(bool ok) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "StopAllApp term driving app end. result: %d",
                  static_cast<int>(ok));
}

std::vector<std::string> BaseAppsToStop() {
    return ApplicationManager::GetInstance().BaseAppNames();
}

void LogBaseBegin() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "StopAllApp term base app begin.");
}

void LogBaseFailed(int attempt, const AppChangeInfo& info) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "StopAllApp baseAppTermList %d loop: %s term failed state: %u",
                  attempt, info.appName.c_str(), static_cast<uint32_t>(info.state));
}

void LogBaseEnd(bool ok) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "StopAllApp term base app end. result: %d",
                  static_cast<int>(ok));
}

constexpr StopStage kStopStages[] = {
    {DrivingAppsToStop, LogDrivingBegin, LogDrivingFailed, LogDrivingEnd},
    {BaseAppsToStop, LogBaseBegin, LogBaseFailed, LogBaseEnd},
};

/// What the next attempt has to terminate.
std::vector<AppInfoForServer> LeftToStop(const StopStage& stage, int attempt, const std::vector<AppChangeInfo>& infos) {
    std::vector<AppInfoForServer> left;
    for (const AppChangeInfo& info : infos) {
        if (info.state != AppChangeState::SUCCESS) {
            left.push_back({info.appName, {}, {}});
            stage.logFailed(attempt, info);
        }
    }
    return left;
}

bool RunStopStage(const StopStage& stage, const std::function<void()>& pause) {
    stage.logBegin();
    std::vector<AppInfoForServer> toStop = WithoutArguments(stage.appNames());
    bool ok = false;
    for (int attempt = 1; !ok && attempt <= kMaxStopAttempts; ++attempt) {
        std::vector<AppChangeInfo> infos;
        ok = ApplicationManager::GetInstance().ChangeApp(toStop, {}, {}, infos, kStopTimeoutMs);
        pause();
        const bool wasRefused = !ok && infos.empty();
        if (!wasRefused) {
            toStop = LeftToStop(stage, attempt, infos);
        }
    }
    stage.logEnd(ok);
    return ok;
}

void StoreQueriedState(const std::string& name, unsigned int state) {
    const std::shared_ptr<Application> app = ApplicationManager::GetInstance().FindApplication(name, false);
    if (app == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "GrpOwnerServer: %s is not in this group.", name.c_str());
        return;
    }
    if (state > kLastQueryState) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "GrpOwnerServer: %s detailstatus %u invalid", name.c_str(),
                      state);
        return;
    }
    app->SetQueriedState(static_cast<int>(state));
}

std::string AppReportStateName(AppReportState state) {
    static const std::map<AppReportState, std::string>& names = *new std::map<AppReportState, std::string>{
        {AppReportState::SWITCH_ON, "SWITCH_ON"},
        {AppReportState::SWITCH_OFF, "SWITCH_OFF"},
        {AppReportState::HEART_BEAT_LOST, "HEART_BEAT_LOST"},
        {AppReportState::HEART_BEAT_RECOVERY, "HEART_BEAT_RECOVERY"},
        {AppReportState::ABNORMAL_EXIT, "ABNORMAL_EXIT"},
        {AppReportState::ACTIVELY_EXIT, "ACTIVELY_EXIT"},
    };
    const auto found = names.find(state);
    return found == names.end() ? "unknown" : found->second;
}

void SwitchedOn(const std::shared_ptr<Application>& app, const std::string& name, int pid) {
    if (app == nullptr) {
        // The two blanks belong to the text. It speaks of adding, but nothing is added.
        GRP_OWNER_LOG(
            GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
            "ReportAppStateFromApp nodeName:%s pid:%d  cannot found in GrpOwner(with cfg). so add the appMonitor",
            name.c_str(), pid);
        return;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "GrpOwnerServer: ReportAppStateFromApp. (appName=%s,state=on,pid=%d)", name.c_str(), pid);
    ApplicationManager& manager = ApplicationManager::GetInstance();
    manager.ReportRunningNormalStartFromApp(name);
    // A reload may have replaced the record meanwhile; the report went to the one that counts now.
    if (const std::shared_ptr<Application> current = manager.FindApplicationSilently(name)) {
        GrpOwnerServer::RegisterAppHeartBeat(current);
    }
}

/// What follows a start or restart that the manager has been told of.
void AnnounceRunningAndWatch(const std::string& name) {
    // A reload may have replaced the record meanwhile; the report went to the one that counts now.
    const std::shared_ptr<Application> app = ApplicationManager::GetInstance().FindApplicationSilently(name);
    if (app == nullptr) {
        return;
    }
    if (app->IsAppRunning()) {
        GrpOwnerServer::NotifyAppState(name, app->GetPid(), AppReportState::SWITCH_ON);
    }
    GrpOwnerServer::RegisterAppHeartBeat(app);
}

void TakeNormalStart(const std::shared_ptr<Application>& /*app*/, const Message::AppStateInfo& info) {
    ApplicationManager::GetInstance().ReportRunningNormalStartFromProcMgr(info.appName, info.pid);
    AnnounceRunningAndWatch(info.appName);
}

void TakeNormalRestart(const std::shared_ptr<Application>& app, const Message::AppStateInfo& info) {
    GrpOwnerServer::UnregisterAppHeartBeat(app);
    GrpOwnerServer::NotifyAppState(info.appName, app->GetPid(), AppReportState::SWITCH_OFF);
    ApplicationManager::GetInstance().ReportRunningNormalReStartFromProcMgr(info.appName, info.pid);
    AnnounceRunningAndWatch(info.appName);
}

void TakeTermTimeout(const std::shared_ptr<Application>& /*app*/, const Message::AppStateInfo& info) {
    ApplicationManager::GetInstance().ReportRunningAbnormalTermTimeoutFromProcMgr(info.appName);
}

void TakeNormalExit(const std::shared_ptr<Application>& app, const Message::AppStateInfo& info) {
    ApplicationManager& manager = ApplicationManager::GetInstance();
    GrpOwnerServer::UnregisterAppHeartBeat(app);
    GrpOwnerServer::NotifyAppState(info.appName, app->GetPid(), AppReportState::SWITCH_OFF);
    manager.ReportTerminatedNormalFromProcMgr(info.appName);
    manager.RemoveDynamicApplication(info.appName);
}

void TakeAbnormalExit(const std::shared_ptr<Application>& app, const Message::AppStateInfo& info) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "Receive app abnormal exit. (appName=%s,pid=%u, reason=%u)",
                  info.appName.c_str(), info.pid, info.reason);
    ApplicationManager& manager = ApplicationManager::GetInstance();
    GrpOwnerServer::UnregisterAppHeartBeat(app);
    GrpOwnerServer::NotifyAppState(info.appName, app->GetPid(), AppReportState::ABNORMAL_EXIT);
    manager.ReportTerminatedAbnormalFromProcMgr(info.appName, static_cast<Message::AppAbnormalExitReason>(info.reason));
    manager.RemoveDynamicApplication(info.appName);
    // Also after an end that was asked for: whether it was is the process manager's to say, by the kind of its report.
    manager.CheckAndRestartApp(info.appName);
}

/// A kind of report of the process manager: its name in messages, and what it does.
struct ReportKind {
    Message::ReportAppStateType type;
    const char* name;
    void (*take)(const std::shared_ptr<Application>& app, const Message::AppStateInfo& info);
};

constexpr ReportKind kReportKinds[] = {
    {Message::ReportAppStateType::RUNNING_NORMAL_START, "RUNNING_NORMAL_START", TakeNormalStart},
    {Message::ReportAppStateType::RUNNING_NORMAL_RESTART, "RUNNING_NORMAL_RESTART", TakeNormalRestart},
    {Message::ReportAppStateType::RUNNING_ABNORMAL_TERM_TIMEOUT, "RUNNING_ABNORMAL_TERM_TIMEOUT", TakeTermTimeout},
    {Message::ReportAppStateType::TERMINATED_NORMAL_EXIT, "TERMINATED_NORMAL_EXIT", TakeNormalExit},
    {Message::ReportAppStateType::TERMINATED_ABNORMAL_EXIT, "TERMINATED_ABNORMAL_EXIT", TakeAbnormalExit},
};

const ReportKind* FindReportKind(Message::ReportAppStateType type) {
    const auto* found = std::find_if(std::begin(kReportKinds), std::end(kReportKinds),
                                     [type](const ReportKind& kind) { return kind.type == type; });
    return found == std::end(kReportKinds) ? nullptr : found;
}

void TakeReport(const std::shared_ptr<Application>& app, const Message::AppStateInfo& info) {
    const ReportKind* kind = FindReportKind(static_cast<Message::ReportAppStateType>(info.appState));
    if (kind == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "GrpOwnerServer: ReportAppStateFromProcMgr app:%s state is unknown !", info.appName.c_str());
        return;
    }
    kind->take(app, info);
}

void HeartBeatLost(const std::string& name, unsigned int pid) {
    const int signedPid = static_cast<int>(pid);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "GroupOwner: process heart beat notify. (app=%s,pid=%d,status=lost)", name.c_str(), signedPid);
    GrpOwnerServer::NotifyAppState(name, signedPid, AppReportState::HEART_BEAT_LOST);
    GrpOwnerServer::UpdateHeartBeatLostApps(name, pid, AppReportState::HEART_BEAT_LOST);
}

void HeartBeatRecovered(const std::string& name, unsigned int pid) {
    const int signedPid = static_cast<int>(pid);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "GroupOwner: process heart beat notify. (app=%s,pid=%d,status=recovery)", name.c_str(), signedPid);
    GrpOwnerServer::NotifyAppState(name, signedPid, AppReportState::HEART_BEAT_RECOVERY);
    GrpOwnerServer::UpdateHeartBeatLostApps(name, pid, AppReportState::HEART_BEAT_RECOVERY);
}

int HandleHeartBeatNotice(const char* name, size_t nameLen, unsigned int pid, int status) {
    if (name == nullptr || nameLen == 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "GroupOwner: process heart beat notify, app name is invalid. (nameLen=%zu)", nameLen);
        return 0;
    }
    if (status == kHeartBeatLost) {
        HeartBeatLost(std::string(name, nameLen), pid);
        return 1;
    }
    if (status == kHeartBeatRecovered) {
        HeartBeatRecovered(std::string(name, nameLen), pid);
        return 1;
    }
    return 0;
}

}  // namespace

std::mutex& GrpOwnerServer::subscriberMutex_ = *new std::mutex;
GrpOwnerServer::AppStateSubscriber& GrpOwnerServer::appStateChangeCb_ = *new AppStateSubscriber;

GrpOwnerServer::GrpOwnerServer(std::function<void()> pauseAfterStop)
    : pauseAfterStop_(pauseAfterStop ? std::move(pauseAfterStop) : RestForOneSecond) {
}

void GrpOwnerServer::SubscribeSystemState(const SystemStateSubscriber& subscriber) {
    SystemStateSubscriber next = subscriber;
    const std::lock_guard<std::mutex> lock(subscriberMutex_);
    systemStateChangeCb_.swap(next);
}

void GrpOwnerServer::SubscribeAppState(const AppStateSubscriber& subscriber) {
    AppStateSubscriber next = subscriber;
    const std::lock_guard<std::mutex> lock(subscriberMutex_);
    appStateChangeCb_.swap(next);
}

bool GrpOwnerServer::SetSystemState(int state, int timeoutMs) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "Set system state begin. (state=%d,timeout=%d ms)", state,
                  timeoutMs);
    SystemStateSubscriber subscriber;
    {
        const std::lock_guard<std::mutex> lock(subscriberMutex_);
        subscriber = systemStateChangeCb_;
    }
    return subscriber ? subscriber(state, timeoutMs) : false;
}

bool GrpOwnerServer::ChangeApp(const std::vector<AppInfoForServer>& term, const std::vector<AppInfoForServer>& start,
                               const std::vector<AppInfoForServer>& restart, std::vector<AppChangeInfo>& result,
                               int timeoutMs) {
    // The two blanks belong to the text.
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "GrpOwnerServer receive callback(RegSsChangeAppCallBack)  ChangeApp begin. (timeout=%d ms)",
                  timeoutMs);
    const ChangeList lists[] = {{term, AnnounceTermination}, {start, AnnounceStart}, {restart, AnnounceRestart}};
    for (const ChangeList& list : lists) {
        for (const AppInfoForServer& app : list.apps) {
            list.announce(app.appName, ArgumentText(app.args));
        }
    }
    return ApplicationManager::GetInstance().ChangeApp(term, start, restart, result, timeoutMs);
}

bool GrpOwnerServer::QueryAppState(const std::vector<std::string>& names, std::vector<AppStatus>& states,
                                   int timeoutMs) {
    return ApplicationManager::GetInstance().QueryAppState(names, states, timeoutMs);
}

void GrpOwnerServer::QueryAppStateRespFromProcMgr(std::map<std::string, unsigned int> states) {
    for (const auto& [name, state] : states) {
        StoreQueriedState(name, state);
    }
    ApplicationManager::NotifyQueryAppState();
}

bool GrpOwnerServer::QueryAppList(std::vector<std::string>& names) {
    return ApplicationManager::GetInstance().QueryAppList(names);
}

bool GrpOwnerServer::GrpOwnerVerifyApp(const std::map<std::string, unsigned int>& apps) {
    return ApplicationManager::GetInstance().GrpOwnerVerifyApp(apps);
}

bool GrpOwnerServer::ReloadCfg() {
    return ApplicationManager::GetInstance().ReloadCfg();
}

bool GrpOwnerServer::ApplicationDump() {
    return ApplicationManager::GetInstance().ApplicationDump();
}

bool GrpOwnerServer::StopAllApp() {
    // The driving applications go first: they use the services of the base applications.
    return std::all_of(std::begin(kStopStages), std::end(kStopStages),
                       [this](const StopStage& stage) { return RunStopStage(stage, pauseAfterStop_); });
}

std::shared_ptr<Application> GrpOwnerServer::FindApp(const std::string& name) const {
    std::shared_ptr<Application> app = ApplicationManager::GetInstance().FindApplication(name, false);
    if (app == nullptr) {
        // The class name is doubled in the text.
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                      "GrpOwnerServer::GrpOwnerServer::FindApp (no application found) app name is %s.", name.c_str());
    }
    return app;
}

int GrpOwnerServer::GrpOwnerReportEvent(const unsigned char* /*data*/, unsigned int /*len*/) const {
    return 0;
}

bool GrpOwnerServer::NotifyAppState(const std::string& name, int pid, AppReportState state) {
    const std::string stateName = AppReportStateName(state);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "Notify app state begin. (name=%s,pid=%d,state=%s)",
                  name.c_str(), pid, stateName.c_str());
    AppStateSubscriber subscriber;
    {
        const std::lock_guard<std::mutex> lock(subscriberMutex_);
        subscriber = appStateChangeCb_;
    }
    return subscriber ? subscriber(name, pid, state) : false;
}

void GrpOwnerServer::ReportAppStateFromApp(const std::string& name, int pid, AppReportState state) const {
    const std::shared_ptr<Application> app = ApplicationManager::GetInstance().FindApplication(name, false);
    if (state == AppReportState::SWITCH_ON) {
        SwitchedOn(app, name, pid);
    } else if (state == AppReportState::SWITCH_OFF) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                      "GrpOwnerServer: ReportAppStateFromApp. (appName=%s,state=off,pid=%d)", name.c_str(), pid);
    }
}

void GrpOwnerServer::ReportAppStateFromProcMgr(std::vector<Message::AppStateInfo> infos) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "GrpOwnerServer: ReportAppStateFromProcMgr begin.");
    for (const Message::AppStateInfo& info : infos) {
        const std::string kind = GetAppStateFromProcMgrName(static_cast<Message::ReportAppStateType>(info.appState));
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "Receive app state from pm. (appName=%s,state=%s,pid=%u)",
                      info.appName.c_str(), kind.c_str(), info.pid);
        const std::shared_ptr<Application> app = ApplicationManager::GetInstance().FindApplication(info.appName, false);
        if (app == nullptr) {
            GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "App:%s is not in this group.", info.appName.c_str());
            continue;
        }
        TakeReport(app, info);
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "GrpOwnerServer: ReportAppStateFromProcMgr end.");
}

std::string GrpOwnerServer::GetAppStateFromProcMgrName(Message::ReportAppStateType type) const {
    const ReportKind* kind = FindReportKind(type);
    return kind == nullptr ? "Unknown" : kind->name;
}

void GrpOwnerServer::RegisterAppHeartBeat(const std::shared_ptr<Application>& app) {
    if (!app->GetHeartBeatSwitch()) {
        return;
    }
    const std::string name = app->GetAppName();
    UpdateHeartBeatLostApps(name, static_cast<unsigned int>(app->GetPid()), AppReportState::SWITCH_ON);
    const int ret = RegisterCheckHeartBeat(name.c_str(), name.size(), app->GetGid(), ProcessHeartBeatNotify);
    if (ret == 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                      "GroupOwner: register heart beat check success. (app=%s,gid=%u)", name.c_str(), app->GetGid());
        return;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                  "GroupOwner: register heart beat check failed. (app=%s,ret=%d)", name.c_str(), ret);
}

void GrpOwnerServer::UnregisterAppHeartBeat(const std::shared_ptr<Application>& app) {
    if (app->GetHeartBeatSwitch()) {
        const std::string name = app->GetAppName();
        // It may not be watched (any more); there is nothing to do about it then.
        static_cast<void>(UnregisterCheckHeartBeat(name.c_str(), name.size()));
    }
}

void GrpOwnerServer::UpdateHeartBeatLostApps(const std::string& name, unsigned int pid, AppReportState op) {
    // Never destroyed: a notice may still come while the process exits.
    static std::mutex& lostAppsMutex = *new std::mutex;
    static std::set<std::string>& heartBeatLostApps = *new std::set<std::string>;

    const std::lock_guard<std::mutex> lock(lostAppsMutex);
    if (op == AppReportState::HEART_BEAT_LOST) {
        heartBeatLostApps.insert(name);
    } else if (op == AppReportState::HEART_BEAT_RECOVERY) {
        heartBeatLostApps.erase(name);
    } else if (op == AppReportState::SWITCH_ON && heartBeatLostApps.count(name) != 0) {
        // Under the lock on purpose: the recovery is told before a new loss of the same application can be noted.
        NotifyAppState(name, static_cast<int>(pid), AppReportState::HEART_BEAT_RECOVERY);
        heartBeatLostApps.erase(name);
    }
}

int GrpOwnerServer::ProcessHeartBeatNotify(const char* name, size_t nameLen, unsigned int pid, int status) noexcept {
    try {
        return HandleHeartBeatNotice(name, nameLen, pid, status);
    } catch (...) {
        return 0;
    }
}

}  // namespace ProcMgr
