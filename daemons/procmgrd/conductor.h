/// Carries out what the supervisor decides: the one place where requests, processes and deadlines meet.
///
/// Launches wait in a queue and are made a few per turn of the loop, so that a large request keeps nobody waiting. A
/// slow one is the last of its turn.
#ifndef PROCMGR_PROCMGRD_CONDUCTOR_H
#define PROCMGR_PROCMGRD_CONDUCTOR_H

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "daemons/procmgrd/deadlines.h"
#include "daemons/procmgrd/event_loop.h"
#include "daemons/procmgrd/launch/launch_spec.h"
#include "daemons/procmgrd/launch/state_file.h"
#include "daemons/procmgrd/process_host.h"
#include "daemons/procmgrd/stop_plan.h"
#include "daemons/procmgrd/supervisor.h"
#include "daemons/procmgrd/timelines.h"
#include "platform/include/application_manifest.h"
#include "pm_agent/message_records.h"

namespace Procmgrd {

struct ConductorNews {
    /// To be sent to the owner, if it is there, in this order.
    std::function<void(const std::string& owner, const ProcMgr::Message::AppStateInfo& report)> report;
    std::function<void(const AppKey& key, pid_t pid, uint32_t appState)> appReport;
    /// For the owner's heartbeat library, if the owner is there. Without an application's name: our own beat.
    std::function<void(const AppKey& key, pid_t pid, gid_t gid)> beat;
    /// An application of this owner has no process any more.
    std::function<void(const std::string& owner)> down;
};

class Conductor {
public:
    Conductor(EventLoop& loop, Deadlines& deadlines, ProcMgr::StateFile& stateFile, Timelines& timelines,
              ProcessHostSettings settings, ConductorNews news);

    /// Start or restart. `manifest` is null when the owner's configuration has none for this application: one that runs
    /// is then handled by the manifest of its last start, any other is answered with an abnormal exit.
    void Start(const AppKey& key, AppRequest request, const ApplicationManifest* manifest,
               const ProcMgr::OwnerIdentity& owner);
    void Terminate(const AppKey& key);

    /// For a state query: 0 running, 1 not running, 2 in transition.
    uint32_t QueryState(const AppKey& key) const { return supervisor_.QueryState(key); }
    std::vector<std::string> LiveAppsOf(const std::string& owner) const { return supervisor_.LiveAppsOf(owner); }

    void NoteChildNews() { host_.NoteChildNews(); }
    void OnDeadline(const DeadlineKey& deadline);

    /// After each turn of the loop; true when there is more to do at once.
    [[nodiscard]] bool EndTurn();

    /// Ends everything: an application after those that depend on it, and by force what is left after the time. Starts
    /// are refused from now on. A second call ends what is left by force at once.
    void Stop(uint32_t timeoutMs);
    bool IsStopped() const { return isStopping_ && queue_.empty() && host_.IsEmpty(); }
    bool IsStopping() const { return isStopping_; }

    /// Those that run, come up or go down.
    size_t CountApps() const { return launchables_.size(); }

    void DrainOutputs() { host_.DrainOutputs(); }

private:
    /// With what an application is launched, now and when a restart finds no newer manifest.
    struct Launchable {
        ApplicationManifest manifest;
        ProcMgr::OwnerIdentity owner;
    };

    void Execute(const Actions& actions);
    void ExecuteOne(const Action& action);
    void Launch(const AppKey& key, const AppRequest& request);
    void OnTerminationDeadline(const AppKey& key);
    void OnExited(const AppKey& key, ExitStatus status);
    void Refuse(const AppKey& key, ExitReason reason);
    void NoteFailure(const AppKey& key, ExitNote why);
    void ForgetIfDown(const AppKey& key);
    void ContinueStop(const AppKey& key);
    void KillAll();

    Deadlines& deadlines_;
    Timelines& timelines_;
    const ConductorNews news_;
    Supervisor supervisor_;
    ProcessHost host_;
    std::map<AppKey, Launchable> launchables_;  // of all that are not DOWN
    std::deque<std::pair<AppKey, AppRequest>> queue_;
    bool isStopping_ = false;
    StopPlan stopPlan_;
};

/// Writes the log line of a report to an owner.
void LogReport(const std::string& owner, const ProcMgr::Message::AppStateInfo& report);

/// "killed by signal 9 (Killed)", "exit code 3", "the program does not exist (No such file or directory)", ...
std::string DescribeExit(const ProcMgr::Message::AppStateInfo& report);

}  // namespace Procmgrd

#endif
