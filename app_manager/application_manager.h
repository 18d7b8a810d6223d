/// The owner of every application of the group: reads the manifests, starts the base applications, carries out change
/// requests in dependency order, answers queries, and passes the reports of the process manager and of the applications
/// on to the state machines.
///
/// Three collections. Base applications are those that start with the group; driving applications are the others and
/// the instances of templates; dynamic manifests are the templates, from which an instance is made when its name is
/// first asked for.
///
/// One change request runs at a time: terminate, then start, then restart. Terminating and starting go in waves of a
/// dependency graph, and each result that comes in may set the next wave free. Results come only from reports:
///
///     report -> state machine of the application -> ReportAppResult -> the run that waits for this name
///
/// A result is settled once. For a start, INIT (nothing sent yet) and PROCESSING (command sent) are open, everything
/// else is final; a run that timed out is closed, and what comes later is only logged. A terminate wave waits up to the
/// effective wait of the request's time-out for each result that lets it go on, a start run has that time as a whole,
/// a restart run has it for the whole list. So a change with k terminate waves may take k + 2 such waits.
///
/// Threads. Every operation may be called from any thread; change requests and StartBaseApplication block until their
/// results are in, so they must not be called on the thread that delivers the reports. StartBaseApplication is called
/// by one thread at a time. ApplicationMgrInit is called once, before the first change.
///
/// Locks, in the order in which they may be taken:
///  1. graphMutex_: the parser's dependency map is complete; taken while holding nothing else, held over a reload.
///  2. appMutex_: the collections and flags. Whatever is decided on an application (find it, ask its state, tell it to
///     start or that it ended) happens in one section of it, so that a reload can't put another record in between.
///  3. the mutex of a change record. appMutex_ is never taken under it.
///  4. the mutexes inside an Application.
/// None is held while the process manager's agent is called or a task is waited for, except that QueryAppState keeps
/// queryAppStateRespMutex_ while it sends, so that no answer can come before it waits.
#ifndef PROCMGR_APP_MANAGER_APPLICATION_MANAGER_H
#define PROCMGR_APP_MANAGER_APPLICATION_MANAGER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app_manager/change_records.h"
#include "app_manager/deadline_wait.h"
#include "application/application.h"
#include "common/app_records.h"
#include "common/enumerations.h"
#include "platform/include/application_manifest.h"
#include "pm_agent/message_records.h"

namespace ProcMgr {

class ApplicationManager {
public:
    using ApplicationMap = std::map<std::string, std::shared_ptr<Application>>;
    using ManifestMap = std::map<std::string, ApplicationManifest>;

    static ApplicationManager& GetInstance();

    // Set-up.

    /// Tells the process manager where the manifests are, reads them and fills the collections. An empty path stands
    /// for the one in STARTUP_ENTRY_PATH; replacement data is read only then. Manifests with errors are left out and
    /// are no failure. False when there is no path or the process manager refuses it.
    [[nodiscard]] bool ApplicationMgrInit(const std::string& startupEntryPath);

    /// Takes the entry path from STARTUP_ENTRY_PATH, if that names something that exists.
    void InitStartupPathByEnv();

    /// Sets the time-outs of the records by DATAMASTER_RUN_MODE.
    void InitAppCond();

    /// Starts every base application; true when all of them run. Blocks.
    [[nodiscard]] bool StartBaseApplication();

    /// True when the last StartBaseApplication succeeded for every application; logs those for which it did not.
    bool CheckBaseApplicationResult();

    // Look-up.

    /// The application, or null. With `createDynamic`, an instance of a template is made; a name that fits no template
    /// then throws std::out_of_range.
    std::shared_ptr<Application> FindApplication(const std::string& name, bool createDynamic);

    /// As FindApplication without creating, and without its message; for who has looked the name up already.
    std::shared_ptr<Application> FindApplicationSilently(const std::string& name) const;

    /// Forgets an instance of a template, unless it is being started or runs again.
    void RemoveDynamicApplication(const std::string& name);

    /// The driving applications that neither wait for their first start nor have ended, in name order.
    std::vector<std::string> DrivingAppNamesToStop() const;

    /// The base applications, in name order.
    std::vector<std::string> BaseAppNames() const;

    // Reload.

    /// Reads the manifests again; applications keep process, state and restart count, instances of templates stay.
    /// False when a change or another reload runs, when the process manager refuses, or when a manifest is broken:
    /// everything stays as it was. Without an entry path every later reload is refused as well.
    [[nodiscard]] bool ReloadCfg();

    /// Replaces the collections by what `manifests` describe. Always true.
    bool UpdateApplicationList(const std::vector<ApplicationManifest>& manifests);

    // Changes.

    /// Carries out the three lists in this order and appends one entry per application to `results`. `timeoutMs` of
    /// zero or less keeps that of the change before. True when every application succeeded. False with no entry when
    /// another change is running. Blocks.
    [[nodiscard]] bool ChangeApp(const std::vector<AppInfoForServer>& term, const std::vector<AppInfoForServer>& start,
                                 const std::vector<AppInfoForServer>& restart, std::vector<AppChangeInfo>& results,
                                 int timeoutMs);

    /// Restarts an application that ended by itself, if its policy wants that. Does not wait for the outcome.
    void CheckAndRestartApp(const std::string& name);

    /// Result entries. A result for a name that no run waits for is logged or ignored.
    void ReportStartAppResult(const std::string& name, AppChangeState state);
    void ReportTermAppResult(const std::string& name, AppChangeState state);
    void ReportRestartAppResult(const std::string& name, AppChangeState state, uint64_t report = kNewestReport);

    /// Offers `state` to the runs that can wait for it, given the state in which the report met the application.
    /// `report` is the number of that report.
    void ReportAppResult(const std::string& name, AppChangeState state, AppStateType stateType,
                         uint64_t report = kNewestReport);

    // Queries.

    /// Asks the process manager for the states of the known ones of `names` and waits for its answer. Replaces
    /// `statuses` on success by one entry per name. One query at a time. An answer that comes after the time-out ends
    /// the next query early, because answers name no query. Blocks.
    [[nodiscard]] bool QueryAppState(const std::vector<std::string>& names, std::vector<AppStatus>& statuses,
                                     int timeoutMs);

    /// Wakes the waiting query: the answer is stored in the applications.
    static void NotifyQueryAppState();

    /// Appends the names of base and driving applications. Always true.
    bool QueryAppList(std::vector<std::string>& names) const;

    /// Adopts driving applications that were running before this process came up: those that were never started become
    /// terminated (value 1) or running (any other value). Always true.
    bool GrpOwnerVerifyApp(const std::map<std::string, uint32_t>& apps);

    /// Writes everything to the log. Always true.
    bool ApplicationDump() const;

    // Reports. One about an unknown application changes nothing.

    void ReportRunningNormalStartFromProcMgr(const std::string& name, uint32_t pid);
    void ReportRunningNormalStartFromApp(const std::string& name);
    void ReportRunningAbnormalTermTimeoutFromProcMgr(const std::string& name);
    void ReportTerminatedNormalFromProcMgr(const std::string& name);
    void ReportTerminatedAbnormalFromProcMgr(const std::string& name, Message::AppAbnormalExitReason reason);
    void ReportRunningNormalReStartFromProcMgr(const std::string& name, uint32_t pid);

    /// Waits by other clocks than the system's from now on; they must outlive the manager's use.
    void UseClocks(WaitClocks& clocks) { clocks_ = &clocks; }

    ApplicationManager(const ApplicationManager&) = delete;
    ApplicationManager& operator=(const ApplicationManager&) = delete;

private:
    friend class ApplicationManagerPeer;

    struct Found;
    struct TermDecision;
    struct StartDecision;
    struct RestartDecision;
    struct RestartCommand;
    struct Collections;
    class TransitionGuard;
    class ReloadGuard;

    using StartRequests = std::map<std::string, const AppInfoForServer*>;
    using Tasks = std::vector<std::future<void>>;

    ApplicationManager();
    ~ApplicationManager() = default;

    // Look-up, with appMutex_ held.
    std::shared_ptr<Application> FindSilentlyLocked(const std::string& name) const;
    std::shared_ptr<Application> FindApplicationLocked(const std::string& name) const;
    Found FindOrCreateLocked(const std::string& name);
    void CreateDynamicApplication(const std::string& name);

    // Set-up.
    static Collections SortManifests(const std::vector<ApplicationManifest>& manifests, bool logTemplates);
    void AddApplications(Collections collections);
    std::string StartupEntryPath() const;
    void SetStartupEntryPath(const std::string& path);
    std::vector<AppInfoForServer> BaseStartList() const;

    // Reload.
    enum class ReloadOutcome { DONE, REFUSED, BROKEN };
    bool BeginReload();
    ReloadOutcome TryReload(const std::string& path);
    ReloadOutcome ReloadManifests(const std::string& path);
    static void InitApplicationFromOrig(ApplicationMap& newMap, const ApplicationMap& oldMap);

    // Change as a whole. The Try... operations fail where those they call throw.
    bool BeginTransition(int timeoutMs);
    void ResetChangeAppInfo(int timeoutMs);
    bool RunPhases(const std::vector<AppInfoForServer>& term, const std::vector<AppInfoForServer>& start,
                   const std::vector<AppInfoForServer>& restart);
    bool TryTermApps(const std::vector<AppInfoForServer>& list);
    bool TryStartApps(const std::vector<AppInfoForServer>& list, StartAppInfo& info);
    bool TryRestartApps(const std::vector<AppInfoForServer>& list);
    bool MergeChangeAppResult(std::vector<AppChangeInfo>& results);

    // Terminate.
    enum class Wave { READY, DONE, TIMED_OUT };
    bool TermApps(const std::vector<AppInfoForServer>& list);
    std::vector<std::string> GetTermAppNameList(const std::vector<AppInfoForServer>& list) const;
    void GetAppsNeedTerm(const std::string& name, std::vector<std::string>& names) const;
    DependGraph BuildTermGraph(const std::vector<std::string>& names);
    void OpenTermRun(const std::vector<std::string>& names, DependGraph graph);
    Wave WaitForTermWave(std::chrono::milliseconds wait, std::vector<std::string>& wave);
    void TermNoDependsApps(const std::vector<std::string>& names);
    void TermOneApp(const std::string& name, std::vector<Message::TermAppInfo>& commands);
    TermDecision DecideTerm(const std::string& name);
    void MarkLeftAppToTermFailed();

    // Start. `noDepends` holds the free vertices that a round has to look at.
    bool StartApps(const std::vector<AppInfoForServer>& list, StartAppInfo& info);
    DependGraph BuildStartGraph(const std::vector<std::string>& names);
    bool RunStartWaves(const StartRequests& requests, StartAppInfo& info, Tasks& tasks);
    bool NeedContinueStart(std::vector<std::string>& noDepends, StartAppInfo& info);
    bool IsAnyDependencyComingUp(StartAppInfo& info);
    bool IsAnyComingUpBehind(std::string behind, StartAppInfo& info);
    std::vector<std::string>::const_iterator FirstComingUp(const std::vector<std::string>& names) const;
    std::vector<std::string> FillAppInfoAndStart(const std::vector<std::string>& noDepends,
                                                 const StartRequests& requests, StartAppInfo& info);
    bool FillRequested(const std::string& name, StartAppInfo& info);
    void PassRunningDependency(const std::string& name, StartAppInfo& info);
    void StartNoDependsApps(const std::vector<const AppInfoForServer*>& list, StartAppInfo& info);
    void StartOneApp(const AppInfoForServer& app, StartAppInfo& info, std::vector<Message::StartAppInfo>& commands);
    StartDecision DecideStart(const AppInfoForServer& app);
    void SendStart(const std::vector<Message::StartAppInfo>& commands);
    void CheckProcessCompleted(const std::vector<std::string>& noDepends, StartAppInfo& info, Tasks& tasks);
    static bool PopVertex(const std::string& name, StartAppInfo& info);
    void ReportSuccessByTask(const std::string& name, Tasks& tasks);
    static bool WaitForStartProgress(const Deadline& deadline, StartAppInfo& info);
    static void ReportStartAppResult(const std::string& name, AppChangeState state, StartAppInfo& info);
    static void MarkLeftAppToStartFailed(StartAppInfo& info);
    void NoteCameUp(const std::string& name);

    // Restart.
    bool RestartApps(const std::vector<AppInfoForServer>& list);
    void OpenRestartRun(const std::vector<AppInfoForServer>& list);
    void RestartOneApp(const AppInfoForServer& app, std::vector<RestartCommand>& commands);
    RestartDecision DecideRestart(const AppInfoForServer& app);
    void SendRestart(const std::vector<RestartCommand>& commands);
    void RestartByPolicy(const RestartCommand& command);
    void UndoRestart(const RestartCommand& command);
    void MarkLeftAppToRestartFailed();

    // Queries.
    bool AskProcMgr(const std::vector<std::string>& names, int timeoutMs);
    std::vector<std::string> KnownNames(const std::vector<std::string>& names) const;
    std::vector<AppStatus> StatusesOf(const std::vector<std::string>& names) const;
    void VerifyDrivingApps(const std::map<std::string, uint32_t>& apps);
    static void DumpDependsMap();

    template <typename Report>
    void ForwardReport(const std::string& name, Report report);

    static std::mutex queryAppStateMutex_;      ///< one query at a time
    static std::mutex queryAppStateRespMutex_;  ///< guards queryAppStateAnswers_
    static std::condition_variable waitQueryAppStateRespConditionVar_;
    static uint64_t queryAppStateAnswers_;  ///< number of answers so far

    // Guarded by appMutex_.
    mutable std::mutex appMutex_;
    ApplicationMap baseApplications_;
    ApplicationMap drivingApplications_;
    ManifestMap dynamicManifests_;

    // Each guarded by its own mutexes.
    StartAppInfo baseStartAppInfo_;
    StartAppInfo startAppInfo_;
    TermAppInfo termAppInfo_;
    RestartAppResultInfo restartAppInfo_;

    // Guarded by appMutex_.
    bool isTransitionFinished_ = true;
    bool isReloading_ = false;
    uint64_t reports_ = 0;  ///< number of reports that met an application

    // Safe by themselves.
    std::atomic<int32_t> changeAppTimeout_{0};  ///< ms

    std::string startupEntryPath_;  ///< guarded by appMutex_

    std::mutex graphMutex_;  ///< held while the parser's dependency map is being rebuilt or asked for a graph
    std::atomic<WaitClocks*> clocks_{&WaitClocks::System()};
};

}  // namespace ProcMgr

#endif
