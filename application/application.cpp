#include "application/application.h"

#include <utility>

#include "application/init_application_state.h"
#include "application/running_application_state.h"
#include "application/terminated_application_state.h"
#include "application/terminating_application_state.h"
#include "application/waitready_application_state.h"
#include "common/grp_owner_log.h"

namespace ProcMgr {
namespace {

constexpr uint32_t kMaxRestarts = 5;
constexpr int64_t kRestartWindowMs = 60000;

constexpr const char* kOnForever = "on-forever";
constexpr const char* kOnFailure = "on-failure";

}  // namespace

Application::Application(const ApplicationManifest& manifest, const std::string& name)
    : appName(name.empty() ? manifest.GetAppName() : name),
      arguments(std::make_shared<const std::vector<std::string>>(manifest.GetArguments())),
      isReporting(manifest.GetIsReporting()),
      heartBeatSwitch(manifest.GetHeartBeatSwitch()),
      isRosNode(manifest.GetIsRosNode()),
      isDynamicPara(manifest.GetIsDynamicPara()),
      isAutoBoot(manifest.GetIsAutoBoot()),
      isForceTerm(manifest.GetIsForceTerm()),
      isSo(manifest.GetIsSo()),
      restart(manifest.GetRestart()),
      termTimeOut(manifest.GetTermTimeOut()),
      nodeType(manifest.GetNodeType()),
      cfgDeviceId(manifest.GetVfId()),
      uid(manifest.GetUid()),
      gid(manifest.GetGid()),
      binPath(manifest.GetBinPath()),
      soName(manifest.GetSoName()),
      soPath(manifest.GetSoPath()),
      processBindPath(manifest.GetProcessBindPath()),
      coreAffinity(manifest.GetCoreAffinity()),
      resGroupName(manifest.GetResGroupName()),
      depends(manifest.GetDependList()),
      envArgv(manifest.GetEnvArgv()),
      setRtPrio(manifest.GetSetRtPrio()),
      setRtType(manifest.GetSetRtType()) {
    state = std::make_shared<InitApplicationState>(this);
}

// A mutex can't move and the state's back pointer names its application, so both are made anew.
Application::Application(Application&& from)
    : appName(std::move(from.appName)),
      arguments(std::atomic_load(&from.arguments)),
      pid(from.pid.load()),
      queriedState_(from.queriedState_.load()),
      isReporting(from.isReporting),
      heartBeatSwitch(from.heartBeatSwitch),
      isRosNode(from.isRosNode),
      isDynamicPara(from.isDynamicPara),
      isAutoBoot(from.isAutoBoot),
      isForceTerm(from.isForceTerm),
      isSo(from.isSo),
      restart(std::move(from.restart)),
      restartTimer(std::move(from.restartTimer)),
      restartCount_(from.restartCount_.load()),
      termTimeOut(from.termTimeOut),
      nodeType(from.nodeType),
      cfgDeviceId(from.cfgDeviceId),
      uid(from.uid),
      gid(from.gid),
      binPath(std::move(from.binPath)),
      soName(std::move(from.soName)),
      soPath(std::move(from.soPath)),
      processBindPath(std::move(from.processBindPath)),
      coreAffinity(std::move(from.coreAffinity)),
      resGroupName(std::move(from.resGroupName)),
      depends(std::move(from.depends)),
      envArgv(std::move(from.envArgv)),
      setRtPrio(std::move(from.setRtPrio)),
      setRtType(std::move(from.setRtType)) {
    state = MapStateTypeToStatePointer(from.GetAppStateType());
    if (state == nullptr) {
        state = std::make_shared<InitApplicationState>(this);
    }
    from.SetArguments({});
    from.SetAppState(std::make_shared<InitApplicationState>(&from));
}

std::vector<std::string> Application::GetArguments() const {
    return *std::atomic_load(&arguments);
}

void Application::SetArguments(std::vector<std::string> values) {
    std::atomic_store(&arguments, Arguments(std::make_shared<const std::vector<std::string>>(std::move(values))));
}

std::shared_ptr<ApplicationState> Application::CurrentState() const {
    const std::lock_guard<std::mutex> lock(stateMutex);
    return state;
}

AppStateType Application::GetAppStateType() const {
    const std::lock_guard<std::mutex> lock(stateCallMutex);
    return CurrentState()->GetType();
}

// The operation may replace the state, and with it the object that runs; the share kept here outlives the call.
template <typename Operation>
auto Application::Forward(Operation operation) {
    const std::lock_guard<std::mutex> lock(stateCallMutex);
    const std::shared_ptr<ApplicationState> current = CurrentState();
    return operation(*current);
}

template <typename Operation>
AppChangeState Application::ForwardReport(AppStateType& previous, Operation operation) {
    return Forward([&previous, &operation](ApplicationState& current) {
        previous = current.GetType();
        return operation(current);
    });
}

bool Application::Start() {
    return Forward([](ApplicationState& current) { return current.Start(); });
}

bool Application::Term() {
    return Forward([](ApplicationState& current) { return current.Term(); });
}

bool Application::Restart() {
    return Forward([](ApplicationState& current) { return current.Restart(); });
}

AppChangeState Application::ReportRunningNormalStartFromProcMgr(AppStateType& previous) {
    return ForwardReport(previous,
                         [](ApplicationState& current) { return current.ReportRunningNormalStartFromProcMgr(); });
}

AppChangeState Application::ReportRunningAbnormalTermTimeoutFromProcMgr(AppStateType& previous) {
    return ForwardReport(
        previous, [](ApplicationState& current) { return current.ReportRunningAbnormalTermTimeoutFromProcMgr(); });
}

AppChangeState Application::ReportRunningNormalReStartFromProcMgr(AppStateType& previous) {
    return ForwardReport(previous,
                         [](ApplicationState& current) { return current.ReportRunningNormalReStartFromProcMgr(); });
}

AppChangeState Application::ReportTerminatedNormalFromProcMgr(AppStateType& previous) {
    return ForwardReport(previous,
                         [](ApplicationState& current) { return current.ReportTerminatedNormalFromProcMgr(); });
}

AppChangeState Application::ReportTerminatedAbnormalFromProcMgr(unsigned reason, AppStateType& previous) {
    return ForwardReport(
        previous, [reason](ApplicationState& current) { return current.ReportTerminatedAbnormalFromProcMgr(reason); });
}

AppChangeState Application::ReportRunningNormalStartFromApp(AppStateType& previous) {
    return ForwardReport(previous, [](ApplicationState& current) { return current.ReportRunningNormalStartFromApp(); });
}

void Application::SetAppState(std::shared_ptr<ApplicationState> next) {
    if (next == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "Application::SetAppState: setting application %s 'state to NULL is invalid", appName.c_str());
        return;
    }
    const std::lock_guard<std::mutex> lock(stateMutex);
    state.swap(next);
}

std::shared_ptr<ApplicationState> Application::MapStateTypeToStatePointer(AppStateType kind) const {
    // No Application is ever a constant; the state needs to call back.
    auto* const self = const_cast<Application*>(this);
    switch (kind) {
        case AppStateType::INIT_STATE:
            return std::make_shared<InitApplicationState>(self);
        case AppStateType::RUNNING_STATE:
            return std::make_shared<RunningApplicationState>(self);
        case AppStateType::WAIT_READY_STATE:
            return std::make_shared<WaitReadyApplicationState>(self);
        case AppStateType::TERMINATING_STATE:
            return std::make_shared<TerminatingApplicationState>(self);
        case AppStateType::TERMINATED_STATE:
            return std::make_shared<TerminatedApplicationState>(self);
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                  "Application::MapStateTypeToStatePointer: failed to determine the state type: %d",
                  static_cast<int>(kind));
    return nullptr;
}

bool Application::CompareAndSetAppState(AppStateType expected, AppStateType next) {
    // The call lock keeps a state from being replaced under an operation that runs in it.
    const std::lock_guard<std::mutex> callLock(stateCallMutex);
    const std::lock_guard<std::mutex> lock(stateMutex);
    if (state->GetType() != expected) {
        return false;
    }
    const std::shared_ptr<ApplicationState> nextState = MapStateTypeToStatePointer(next);
    if (nextState == nullptr) {
        GRP_OWNER_LOG(
            GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
            "Application::CompareAndSetAppState: the next state should not be null, old state type is %d; next state type is %d",
            static_cast<int>(expected), static_cast<int>(next));
        return false;
    }
    state = nextState;
    return true;
}

bool Application::CopyDynamicAttributeFromApp(Application& from) {
    const AppStateType kind = from.GetAppStateType();
    std::shared_ptr<ApplicationState> next = MapStateTypeToStatePointer(kind);
    if (next == nullptr) {
        GRP_OWNER_LOG(
            GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
            "Application::CopyDynamicAttributeFromApp: the next state should not be null.The original application is in state %d",
            static_cast<int>(kind));
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(stateCallMutex);
        SetAppState(std::move(next));
    }
    SetPid(from.GetPid());
    SetRestartCount(from.GetRestartCount());
    return true;
}

bool Application::CanRestart() {
    return (restart == kOnForever || restart == kOnFailure) && Restart();
}

bool Application::IsOkToRestart() {
    if (restart == kOnForever) {
        return true;
    }
    if (restartTimer == nullptr) {
        restartTimer = std::make_unique<DataMaster::Timer>();
    }
    if (!restartTimer->IsRunning()) {
        restartCount_.store(1);
        restartTimer->Start();
        return true;
    }
    if (restartCount_.load() < kMaxRestarts) {
        restartCount_.fetch_add(1);
        return true;
    }
    restartTimer->Stop();
    const uint32_t count = restartCount_.exchange(0);
    const int64_t elapsedMs = restartTimer->ElapsedMilliseconds();
    if (elapsedMs <= kRestartWindowMs) {
        GRP_OWNER_LOG(
            GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
            "Cannot Restart appName:%s , because restart count(%u) is more than %u within %ld(window time:%ld)ms",
            appName.c_str(), count, kMaxRestarts, static_cast<long>(elapsedMs), static_cast<long>(kRestartWindowMs));
        return false;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "IsOkToRestart appName:%s elapseMillisecond:%ld restartCount_:%u", appName.c_str(),
                  static_cast<long>(elapsedMs), count);
    return true;
}

}  // namespace ProcMgr
