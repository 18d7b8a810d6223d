#include "grp_owner/procmgr_grp_owner_impl.h"

#include <utility>

#include "app_manager/application_manager.h"
#include "common/grp_owner_log.h"
#include "grp_owner/app_infos.h"
#include "platform/include/heartbeat.h"
#include "pm_agent/procmgr_agent.h"
#include "ss_server/ss_to_owner_server_impl.h"

namespace ProcMgr {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kChangeTimeoutMs = 5000;

/// Ends the receiving thread at exit, before the manager that its reports go to.
class PipeCloser {
public:
    PipeCloser() = default;
    ~PipeCloser() { ProcMgrAgent::GetInstance().ClosePipe(); }

    PipeCloser(const PipeCloser&) = delete;
    PipeCloser& operator=(const PipeCloser&) = delete;
};

/// Ends the service at exit, before the pipe and the manager that its requests need.
class ServiceCloser {
public:
    ServiceCloser() = default;
    ~ServiceCloser() { SsToOwnerServerImpl::StopServing(); }

    ServiceCloser(const ServiceCloser&) = delete;
    ServiceCloser& operator=(const ServiceCloser&) = delete;
};

}  // namespace

LogOutputFunc ProcMgrGrpOwnerImpl::logOutput_ = nullptr;
std::mutex ProcMgrGrpOwnerImpl::fdMutex_;

ProcMgrGrpOwner::~ProcMgrGrpOwner() = default;

ProcMgrGrpOwner& ProcMgrGrpOwner::GetInstance() {
    static ProcMgrGrpOwnerImpl instance;
    return instance;
}

int ProcMgrGrpOwnerImpl::GrpOwnerConfig(const GrpOwnerCfg& cfg) {
    cfg_ = {cfg.startupEntryPath, cfg.reserved, cfg.resFileName, cfg.eventReportEnable, cfg.ssServerEnable};
    logOutput_ = cfg.logOutput;
    return kSuccess;
}

int ProcMgrGrpOwnerImpl::GrpOwnerEnable() {
    if (!GroupOwnerRegCb()) {
        return kFailure;
    }
    ProcMgrAgent::GetInstance().StartOwnerHeart();
    return kSuccess;
}

bool ProcMgrGrpOwnerImpl::GroupOwnerRegCb() {
    if (!ProcMgrAgent::GetInstance().IsOk()) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "GroupOwner: ProcMgrAgent RegAppStateChangeCallBack failed because ProcMgrAgent is not OK.");
        return false;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "GroupOwner: ProcMgrAgent RegAppStateChangeCallBack.");
    // Before the manager is set up, so that reports which come meanwhile reach the server.
    RegisterAgentCallbacks();

    ApplicationManager& manager = ApplicationManager::GetInstance();
    // Built after the agent and the manager, so that it goes before both.
    static const PipeCloser closer;
    if (!manager.ApplicationMgrInit(cfg_.startupEntryPath)) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "GroupOwner: ApplicationManager init failed.");
        return false;
    }
    if (cfg_.ssServerEnable) {
        RegisterSsCallbacks();
    }
    return true;
}

void ProcMgrGrpOwnerImpl::RegisterAgentCallbacks() {
    ProcMgrAgent& agent = ProcMgrAgent::GetInstance();
    GrpOwnerServer* server = &server_;
    // The pipe is open; the agent has nothing left to fail with that is not in the log already.
    static_cast<void>(agent.RegAppStateChangeCallBackImpl(
        [server](std::vector<Message::AppStateInfo> infos) { server->ReportAppStateFromProcMgr(std::move(infos)); }));
    static_cast<void>(agent.RegQueryAppStateCallBackImpl([server](std::map<std::string, unsigned int> states) {
        server->QueryAppStateRespFromProcMgr(std::move(states));
    }));
}

void ProcMgrGrpOwnerImpl::RegisterSsCallbacks() {
    // Built after the manager and the closer of the pipe, so that it goes before both.
    static const ServiceCloser closer;
    SsToOwnerServer& service = SsToOwnerServer::GetInstance();
    GrpOwnerServer* server = &server_;
    const std::string& file = cfg_.resFileName;
    // Without the service the group still works for its owner; each failure is in the log.
    static_cast<void>(service.RegSsVerifyAppCallBackImpl(
        [server](const auto& apps) { return server->GrpOwnerVerifyApp(apps); }, file));
    static_cast<void>(service.RegSsChangeAppTimeoutCallBackImpl(
        [server](const auto& term, const auto& start, const auto& restart, auto& result, int timeoutMs) {
            return server->ChangeApp(term, start, restart, result, timeoutMs);
        },
        file));
    static_cast<void>(service.RegReloadCallBackImpl([server] { return server->ReloadCfg(); }, file));
    static_cast<void>(service.RegDumpCallBackImpl([server] { return server->ApplicationDump(); }, file));
    static_cast<void>(
        service.RegQueryAppListCallBackImpl([server](auto& names) { return server->QueryAppList(names); }, file));
    static_cast<void>(service.RegStopAllAppCallBackImpl([server] { return server->StopAllApp(); }, file));
    static_cast<void>(service.RegSetSystemStateTimeoutCallBackImpl(
        [server](int state, int timeoutMs) { return server->SetSystemState(state, timeoutMs); }, file));
    static_cast<void>(service.RegSsQueryAppStateCallBackImpl(
        [server](const auto& names, auto& states, int timeoutMs) {
            return server->QueryAppState(names, states, timeoutMs);
        },
        file));
}

int ProcMgrGrpOwnerImpl::GrpOwnerDisable() {
    ProcMgrAgent::GetInstance().StopOwnerHeart();
    static_cast<void>(DisableAllCheckHeartBeat());
    return kSuccess;
}

bool ProcMgrGrpOwnerImpl::StartAutoStartApp() {
    return ApplicationManager::GetInstance().StartBaseApplication();
}

bool ProcMgrGrpOwnerImpl::CheckAppExisted(const std::string& name) const {
    if (server_.FindApp(name) != nullptr) {
        return true;
    }
    // The text speaks of adding, but nothing is added.
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "App %s is not managed by app manager, will be added to monitor.", name.c_str());
    return false;
}

int ProcMgrGrpOwnerImpl::QueryAppInfo(const std::string& name, ApplicationInfo& info) const {
    const std::shared_ptr<Application> app = server_.FindApp(name);
    if (app == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "App %s is not managed this group owner.", name.c_str());
        return kFailure;
    }
    info.nodeType = static_cast<uint32_t>(app->GetNodeType());
    info.cfgDeviceId = app->GetCfgDeviceId();
    return kSuccess;
}

void ProcMgrGrpOwnerImpl::ReportAppStateFromApp(const std::string& name, int pid, AppReportState state) const {
    server_.ReportAppStateFromApp(name, pid, state);
}

int ProcMgrGrpOwnerImpl::ReportEventFromApp(const unsigned char* data, unsigned int len) const {
    if (!cfg_.eventReportEnable) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "Event report module isn't enabled.");
        return kFailure;
    }
    return server_.GrpOwnerReportEvent(data, len);
}

void ProcMgrGrpOwnerImpl::SubscribeSystemState(const std::function<bool(int, int)>& fn) {
    server_.SubscribeSystemState(fn);
}

void ProcMgrGrpOwnerImpl::SubscribeAppState(const std::function<bool(const std::string&, int, AppReportState)>& fn) {
    GrpOwnerServer::SubscribeAppState(fn);
}

bool ProcMgrGrpOwnerImpl::ReportSelfStateToPm(bool ok) {
    Message::BaseServiceStateInfo info;
    if (ok) {
        info.state = static_cast<uint32_t>(BaseServiceStateType::RUNNING);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "Group owner running ok.");
    } else {
        info.state = static_cast<uint32_t>(BaseServiceStateType::TERMINATING);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "Group owner running failed, so report <TERMINATING> to pm.");
    }
    return ProcMgrAgent::GetInstance().ReportBaseServiceState(info) == kAgentSuccess;
}

int ProcMgrGrpOwnerImpl::ChangeAppState(const std::vector<std::string>& termList,
                                        const std::vector<std::string>& startList,
                                        const std::vector<std::string>& restartList,
                                        std::map<std::string, bool>& result) {
    std::vector<AppChangeInfo> changeInfo;
    const bool changed = server_.ChangeApp(WithoutArguments(termList), WithoutArguments(startList),
                                           WithoutArguments(restartList), changeInfo, kChangeTimeoutMs);
    bool allSucceeded = changed;
    for (const AppChangeInfo& info : changeInfo) {
        const bool succeeded = info.state == AppChangeState::SUCCESS;
        result[info.appName] = succeeded;
        allSucceeded = allSucceeded && succeeded;
    }
    return allSucceeded ? kSuccess : kFailure;
}

int ProcMgrGrpOwnerImpl::GrpOwnerRestartApp(const std::string& name) {
    ApplicationManager::GetInstance().CheckAndRestartApp(name);
    return kSuccess;
}

}  // namespace ProcMgr
