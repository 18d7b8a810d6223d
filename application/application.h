/// The record of one managed application: what its manifest says, what is known of its process, and its state.
#ifndef PROCMGR_APPLICATION_APPLICATION_H
#define PROCMGR_APPLICATION_APPLICATION_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "application/application_state.h"
#include "common/enumerations.h"
#include "common/timer.h"
#include "platform/include/application_manifest.h"

namespace ProcMgr {

/// Owned through shared pointers by the application manager. Every operation may be called from any thread; the
/// operations that reach the state wait for each other, so none of them may be called from inside a state's operation,
/// but for SetAppState and IsOkToRestart. No operation calls anything outside the record but the log.
class Application {
public:
    /// In the state Init. A `name` that is not empty replaces the manifest's, for an instance of a template.
    Application(const ApplicationManifest& manifest, const std::string& name);

    /// The new record has locks of its own and a state of the same kind; `from` is left in the state Init. No other
    /// thread may use `from` meanwhile.
    Application(Application&& from);

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    Application& operator=(Application&&) = delete;
    ~Application() = default;

    // Attributes. Those of the manifest never change; the others are replaced as a whole.
    const std::string& GetAppName() const { return appName; }
    int32_t GetPid() const { return pid.load(); }  ///< -1 until the process manager told one; an exit leaves it
    void SetPid(int32_t value) { pid.store(value); }
    std::vector<std::string> GetArguments() const;
    void SetArguments(std::vector<std::string> values);
    uint32_t GetTermTimeOut() const { return termTimeOut; }
    const std::string& GetRestart() const { return restart; }
    bool GetIsRosNode() const { return isRosNode; }
    bool GetIsReporting() const { return isReporting; }
    bool GetHeartBeatSwitch() const { return heartBeatSwitch; }
    uint32_t GetRestartCount() const { return restartCount_.load(); }
    void SetRestartCount(uint32_t count) { restartCount_.store(count); }
    int32_t GetNodeType() const { return nodeType; }
    uint32_t GetCfgDeviceId() const { return cfgDeviceId; }
    uint32_t GetUid() const { return uid; }
    uint32_t GetGid() const { return gid; }
    bool GetIsDynamicPara() const { return isDynamicPara; }
    bool GetIsAutoBoot() const { return isAutoBoot; }

    /// What the process manager answered last when asked for the state: 0 running, 1 not running (so at first), 2 in
    /// transition.
    int32_t GetQueriedState() const { return queriedState_.load(); }
    void SetQueriedState(int32_t value) { queriedState_.store(value); }

    AppStateType GetAppStateType() const;
    bool IsAppInitializing() const { return GetAppStateType() == AppStateType::INIT_STATE; }
    bool IsAppRunning() const { return GetAppStateType() == AppStateType::RUNNING_STATE; }
    bool IsAppWaitReady() const { return GetAppStateType() == AppStateType::WAIT_READY_STATE; }
    bool IsAppTerminated() const { return GetAppStateType() == AppStateType::TERMINATED_STATE; }

    // What the manager asks for: true when the state accepts it. See application_state.h for all events.
    [[nodiscard]] bool Start();
    [[nodiscard]] bool Term();
    [[nodiscard]] bool Restart();

    // Reports. Each writes the kind of the state in force before it into `previous`, and gives what it settles for a
    // waiting change request.
    AppChangeState ReportRunningNormalStartFromProcMgr(AppStateType& previous);
    AppChangeState ReportRunningAbnormalTermTimeoutFromProcMgr(AppStateType& previous);
    AppChangeState ReportRunningNormalReStartFromProcMgr(AppStateType& previous);
    AppChangeState ReportTerminatedNormalFromProcMgr(AppStateType& previous);
    AppChangeState ReportTerminatedAbnormalFromProcMgr(unsigned reason, AppStateType& previous);
    AppChangeState ReportRunningNormalStartFromApp(AppStateType& previous);

    /// Replaces the state; null is refused with an error in the log. For the states' own use.
    void SetAppState(std::shared_ptr<ApplicationState> next);

    /// A new state object of that kind, bound to this application; null, with an error in the log, for a kind that does
    /// not exist.
    std::shared_ptr<ApplicationState> MapStateTypeToStatePointer(AppStateType kind) const;

    /// Replaces the state if it is of the kind `expected`. False, and nothing changes, when it is not or when `next` is
    /// no kind of state. Never from inside a state's operation.
    bool CompareAndSetAppState(AppStateType expected, AppStateType next);

    /// Takes over state, process id and restart count of `from`, the record that this one replaces. Its restart window
    /// and queried state are not taken over. False, and nothing changes, when the state of `from` is of no known kind.
    [[nodiscard]] bool CopyDynamicAttributeFromApp(Application& from);

    /// Restarts when the policy is "on-forever" or "on-failure" and the state accepts it. Any other policy,
    /// "on-until-succeed" included, gives false and does nothing.
    [[nodiscard]] bool CanRestart();

    /// The restart window: five restarts are accepted within 60000 ms from the first one; the sixth request is refused
    /// when it comes within them, and in any case closes the window, so that the next one opens a new window. The
    /// policy "on-forever" is always accepted and not counted. Takes no lock: only for the states' Restart operations.
    [[nodiscard]] bool IsOkToRestart();

    /// The text of a dump: a line for each of the attributes that matter to a reader, each line with its line feed.
    std::string AppInfoToString() const;

private:
    using Arguments = std::shared_ptr<const std::vector<std::string>>;

    std::shared_ptr<ApplicationState> CurrentState() const;

    template <typename Operation>
    auto Forward(Operation operation);

    template <typename Operation>
    AppChangeState ForwardReport(AppStateType& previous, Operation operation);

    // What bears no comment is constant after construction. What every start, end and report touches stands together
    // at the front, because a large group does not fit into the caches.
    std::string appName;
    mutable std::mutex stateCallMutex;        // before stateMutex: held across each call into the state
    mutable std::mutex stateMutex;            // a leaf: held only while `state` is read, compared or replaced
    std::shared_ptr<ApplicationState> state;  // guarded by stateMutex; never null
    Arguments arguments;                      // only through std::atomic_load and std::atomic_store
    std::atomic<int32_t> pid{-1};
    std::atomic<int32_t> queriedState_{1};
    bool isReporting;
    bool heartBeatSwitch;
    bool isRosNode;
    bool isDynamicPara;
    bool isAutoBoot;
    bool isForceTerm;
    bool isSo;
    std::string restart;
    std::unique_ptr<DataMaster::Timer> restartTimer;  // guarded by stateCallMutex; null until first needed
    std::atomic<uint32_t> restartCount_{0};
    uint32_t termTimeOut;
    int32_t nodeType;
    uint32_t cfgDeviceId;
    uint32_t uid;
    uint32_t gid;
    std::string binPath;
    std::string soName;
    std::string soPath;
    std::string processBindPath;
    std::vector<int32_t> coreAffinity;
    std::string resGroupName;
    std::set<std::string> depends;
    std::map<std::string, std::string> envArgv;
    std::string setRtPrio;
    std::string setRtType;
};

}  // namespace ProcMgr

#endif
