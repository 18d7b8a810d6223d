/// @file
/// The interface of the group-owner library: what a process that owns a group of applications calls.
///
/// Calling order:
///
///     auto& owner = ProcMgr::ProcMgrGrpOwner::GetInstance();
///     owner.GrpOwnerConfig(cfg);
///     owner.SubscribeAppState(onAppState);        // any time; before GrpOwnerEnable to miss nothing
///     owner.SubscribeSystemState(onSystemState);
///     if (owner.GrpOwnerEnable() != 0) { ... }    // once
///     const bool allUp = owner.StartAutoStartApp();
///     owner.ReportSelfStateToPm(allUp);
///     ...                                         // queries, changes, restarts, reports
///     owner.GrpOwnerDisable();
///
/// Results: operations that return int return 0 for success and 1 for failure; those that return bool return true for
/// success. No operation throws for a bad argument, and no failure undoes an earlier step.
///
/// Threads: every operation runs on the caller's thread and may be called from several threads at once, except that
/// GrpOwnerConfig and GrpOwnerEnable belong to the start of the process and to one thread. The library starts no thread
/// that outlives a call. The subscribers run on the threads of the platform: the one that receives the process
/// manager's reports, the one that delivers heartbeat notices, and the one that serves the system-state manager. They
/// may run on several of them at the same time.
///
/// End: return from main or call exit when no thread of yours is inside an operation (_exit when one is). The library
/// then lets the system-state manager's requests that are under way finish, closes the connection to the process
/// manager, and takes itself down. The platform's threads may call the subscribers until the process is gone: let them
/// use nothing that is destroyed at its end, neither local variables of main nor static objects with a destructor.
///
/// Blocking: a change waits for reports that the receiving thread delivers. A subscriber that calls ChangeAppState or
/// StartAutoStartApp from that thread waits for news that only it could fetch, and always runs into the time-out: hand
/// such work to a thread of your own. GrpOwnerRestartApp does not wait and is safe there.
///
/// The types of the standard library cross this border: build the caller with the compiler family and standard library
/// that built the library.
#ifndef PROCMGR_GRP_OWNER_H
#define PROCMGR_GRP_OWNER_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "include/procmgr_enumerations.h"
#include "include/procmgr_export.h"

namespace ProcMgr {

/// Kept for callers that pass one; the library writes through the platform log and never calls it.
using LogOutputFunc = void (*)(int level, const char* text);

/// The configuration. Copied by GrpOwnerConfig; the caller keeps its own.
struct GrpOwnerCfg {
    /// File or folder of the manifests, used as it is given and without replacement data. Empty: the path comes from
    /// the environment variable STARTUP_ENTRY_PATH, and the platform's replacement data is applied to the manifests.
    std::string startupEntryPath;

    /// Not used. It stays, so that existing callers compile and run.
    std::string reserved;

    /// Name under which the system-state manager finds the resource service of this group.
    std::string resFileName;

    /// Whether ReportEventFromApp accepts events.
    bool eventReportEnable = false;

    /// Whether GrpOwnerEnable offers the resource service to the system-state manager.
    bool ssServerEnable = false;

    /// Not used, see LogOutputFunc.
    LogOutputFunc logOutput = nullptr;
};

/// What QueryAppInfo tells of an application, as its manifest has it.
struct ApplicationInfo {
    uint32_t nodeType = 0;     ///< a negative number of the manifest appears as its unsigned image
    uint32_t cfgDeviceId = 0;  ///< the manifest's vf_id
};

/// The facade; the top of this file says how it is used.
class PROCMGR_EXPORT ProcMgrGrpOwner {
public:
    virtual ~ProcMgrGrpOwner();

    /// The only instance. It belongs to the library and lives until the process exits; the caller never deletes it.
    static ProcMgrGrpOwner& GetInstance();

    /// Stores the configuration; a later call replaces all of it. Returns 0. GrpOwnerEnable reads it, so that what is
    /// configured afterwards changes only whether events are accepted.
    virtual int GrpOwnerConfig(const GrpOwnerCfg& cfg) = 0;

    /// Connects to the process manager, reads the manifests, offers the resource service when that is configured, and
    /// starts the owner's own heartbeat. Returns 0, or 1 when the process manager can't be reached or the manager of
    /// the applications fails to set up; the log says which.
    /// Waits up to 180 s for the process manager and up to 5 s for its answer (up to 1800 s for each of them when
    /// DATAMASTER_RUN_MODE is "1"). After a failure it may be called again; after a success call it no more: another
    /// call would end a change that is running.
    virtual int GrpOwnerEnable() = 0;

    /// Stops the owner's heartbeat and the watching of the applications' heartbeats. Returns 0. Everything else stays
    /// as it is: applications keep running, callbacks stay registered, every operation remains callable.
    virtual int GrpOwnerDisable() = 0;

    /// Starts the auto-boot applications in the order of their dependencies and waits for them, at most 4400 ms for all
    /// of them (after a change request with another time-out, as long as that one may wait for its starts). Returns
    /// true when all of them came up.
    virtual bool StartAutoStartApp() = 0;

    /// True when `name` is an application of this group: described by a manifest, or an instance of a template that has
    /// been asked for and has not ended. A template's own name is none, unless it boots by itself.
    virtual bool CheckAppExisted(const std::string& name) const = 0;

    /// Returns 0 and fills `info`, or 1 for an unknown name and leaves `info` as it is.
    virtual int QueryAppInfo(const std::string& name, ApplicationInfo& info) const = 0;

    /// An application's report of itself: SWITCH_ON says that it is ready, SWITCH_OFF that it is stopping (only
    /// logged); other states are ignored. `pid` is only logged. The subscriber is not told of these reports, see
    /// SubscribeAppState.
    virtual void ReportAppStateFromApp(const std::string& name, int pid, AppReportState state) const = 0;

    /// Accepts an event of `len` bytes and drops it. Returns 0, or 1 when the configuration refuses events.
    virtual int ReportEventFromApp(const unsigned char* data, unsigned int len) const = 0;

    /// Replaces the subscriber of system states; an empty function ends the subscription. It gets the state (0 off,
    /// 1 working, 2 suspend, 3 upgrade, 4 calibration; other numbers are passed on as they come) and the time in ms
    /// that the system-state manager waits for it; its result is the answer. It must not throw. Without a subscriber
    /// the answer is failure. A call that began before this one may still reach the former subscriber for a moment
    /// after this one returned.
    virtual void SubscribeSystemState(const std::function<bool(int, int)>& fn) = 0;

    /// Replaces the subscriber of application states; an empty function ends the subscription. It gets the name, the
    /// process id as last known (-1 before the first one, 0 with ACTIVELY_EXIT) and the state; its result is used for
    /// nothing. It must not throw, must return soon, since it
    /// runs on the platform's threads, and must not cause heartbeat notices itself: HEART_BEAT_RECOVERY is told with
    /// the lock of the heartbeat book-keeping held.
    ///
    /// What it hears: SWITCH_ON when the process manager's report finds the application running; SWITCH_OFF before a
    /// restart and at a normal end; ABNORMAL_EXIT; HEART_BEAT_LOST and HEART_BEAT_RECOVERY; ACTIVELY_EXIT for each
    /// application (or template) that a change request names for termination, even when the change is then refused.
    ///
    /// A notification that began before a subscriber was replaced may still reach the former one, as with
    /// SubscribeSystemState.
    ///
    /// What it does not hear: an application that reports its own readiness usually does so after the process manager
    /// has reported its start. It was not yet running at that report and is not announced by its own one, so that no
    /// SWITCH_ON comes for it. Nor does one come when a change has taken an application on again by the time the report
    /// of its start is told: what then follows a restart is SWITCH_OFF and SWITCH_ON. Stop-all announces the ends of
    /// the applications, but no ACTIVELY_EXIT.
    virtual void SubscribeAppState(const std::function<bool(const std::string&, int, AppReportState)>& fn) = 0;

    /// Tells the process manager that this group owner runs (`ok`) or is about to end. Returns true when it was sent.
    virtual bool ReportSelfStateToPm(bool ok) = 0;

    /// Terminates, then starts, then restarts the named applications, and waits. Starts and restarts run without
    /// arguments. Returns 0 when every application got what was asked for; then and when some did not, `result` says of
    /// each application that the change touched whether it did. Returns 1 without touching `result` when another change
    /// is running. Entries of other names in `result` stay. A name that nobody knows is one that did not get what was
    /// asked for; a template's name in `termList` stands for its instances.
    ///
    /// The time-out is 5000 ms, of which 4500 are used: for each wave of terminations, for all starts together, and for
    /// all restarts together. A change with k waves of terminations may therefore take up to (k + 2) times 4500 ms.
    virtual int ChangeAppState(const std::vector<std::string>& termList, const std::vector<std::string>& startList,
                               const std::vector<std::string>& restartList, std::map<std::string, bool>& result) = 0;

    /// Asks the process manager to restart the application if its restart policy allows it. Returns 0 whatever comes of
    /// it, also for an unknown name; it does not wait.
    virtual int GrpOwnerRestartApp(const std::string& name) = 0;
};

}  // namespace ProcMgr

#endif
