/// Runs the processes of the applications: starts them, signals their trees, notices their ends, drains their output
/// and receives what they report about themselves. Decides nothing.
///
/// An application is one process with a tree below it. It has ended when its first process and everything that the
/// tree still held are gone: what outlives the first process is killed at once, or, when the application was told to
/// end, when the deadline of its termination passes. The first process is reaped last, so that its number stays its
/// own until then.
///
/// Signals and ends are collected during a turn of the loop and handled together by EndTurn(), because one look at the
/// processes of the system serves all of them.
#ifndef PROCMGR_PROCMGRD_PROCESS_HOST_H
#define PROCMGR_PROCMGRD_PROCESS_HOST_H

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemons/procmgrd/app_hearts.h"
#include "daemons/procmgrd/app_socket.h"
#include "daemons/procmgrd/deadlines.h"
#include "daemons/procmgrd/event_loop.h"
#include "daemons/procmgrd/launch/launch_spec.h"
#include "daemons/procmgrd/launch/launcher.h"
#include "daemons/procmgrd/launch/output_log.h"
#include "daemons/procmgrd/launch/process_tree.h"
#include "daemons/procmgrd/launch/state_file.h"
#include "daemons/procmgrd/supervisor.h"
#include "daemons/procmgrd/timelines.h"
#include "platform/include/application_manifest.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

struct ProcessHostSettings {
    std::string runDir;
    std::string appSocketDir;  ///< exists
    std::string logDir;        ///< exists, or empty
    rlimit fileLimit{};        ///< what an application gets; the daemon has raised its own
    std::chrono::milliseconds heartBeatPeriod{1000};
    uint32_t heartBeatMisses = 3;
};

/// Told from EndTurn() and from handlers of the loop.
struct ProcessHostNews {
    std::function<void(const AppKey& key, ExitStatus status)> exited;
    std::function<void(const AppKey& key, uint32_t appState)> reported;
    /// For the owner's heartbeat library, if the owner is there. Without an application's name: our own beat.
    std::function<void(const AppKey& key, pid_t pid, gid_t gid)> beat;
};

class ProcessHost {
public:
    ProcessHost(EventLoop& loop, Deadlines& deadlines, ProcMgr::StateFile& stateFile, Timelines& timelines,
                ProcessHostSettings settings, ProcessHostNews news);
    ~ProcessHost();

    /// Starts the application and waits for its exec. Returns its pid; or 0, with the reason in `why`, after logging
    /// what failed. The application has no process yet.
    [[nodiscard]] pid_t Launch(const AppKey& key, const ApplicationManifest& manifest, const AppRequest& request,
                               const ProcMgr::OwnerIdentity& owner, ExitNote& why);

    /// Both take effect in EndTurn().
    void TermTree(const AppKey& key);
    void KillTree(const AppKey& key);

    /// It was told to end and did not: it runs on as if nothing had been said.
    void RunsOn(const AppKey& key);

    /// True when the first process ended and something else of the tree still lives.
    bool HasOnlyLeftovers(const AppKey& key) const;

    /// A child of ours may have ended.
    void NoteChildNews() { hasChildNews_ = true; }

    /// The deadlines PULSE and REPORTS.
    void OnDeadline(const DeadlineKey& deadline);

    /// To be called after each turn of the loop, and when the deadline LEFTOVERS passed.
    void EndTurn();

    bool IsEmpty() const { return processes_.empty(); }

    /// There are signals that came up too late for the last EndTurn().
    bool HasMoreToDo() const { return !toTerm_.empty() || !toKill_.empty(); }

    /// Lines that the applications wrote and that are still in their pipes.
    void DrainOutputs();

    ProcessHost(const ProcessHost&) = delete;
    ProcessHost& operator=(const ProcessHost&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    struct Process {
        ProcMgr::ProcessId leader;
        ProcMgr::UniqueFd pidfd;
        std::unique_ptr<AppSocket> socket;
        bool isSelfReporting = false;
        std::optional<uint32_t> appState;  ///< what one that need not report has told last
        std::string status;
        bool wasToldToEnd = false;
        bool hasEnded = false;  ///< the first process; what it left behind may still live
        Clock::time_point endedAt;
        bool isKilling = false;
        Clock::time_point killedAt;  ///< when that began
    };

    bool MakeSpec(const AppKey& key, const ApplicationManifest& manifest, ProcMgr::LaunchRequest launch,
                  ProcMgr::LaunchSpec& spec) const;
    pid_t Execute(const AppKey& key, const ProcMgr::LaunchSpec& spec, Process process, ExitNote& why);
    std::unique_ptr<ProcMgr::OutputPipe> MakeOutput(const AppKey& key);
    std::unique_ptr<AppSocket> MakeSocket(const AppKey& key);
    bool Record(const AppKey& key, const ProcMgr::ProcessId& process);
    bool Watch(const AppKey& key, const Process& process);
    std::shared_ptr<ProcMgr::OutputLog> LogOf(const AppKey& key);
    void ForgetLogIfDone(const AppKey& key);
    void WatchOutput(const AppKey& key, std::unique_ptr<ProcMgr::OutputPipe> output);
    void Unwatch(const Process& process);
    void Abandon(const Process& process);
    bool WatchSocket(const AppKey& key, const Process& process);
    void ReadSocket(const AppKey& key);
    void TakeNotice(const AppKey& key, const AppNotice& notice);
    void TakeState(const AppKey& key, uint32_t appState);
    ProcMgr::TreeRoot RootOf(const AppKey& key, const Process& process) const;
    static void BeginKilling(Process& process);

    void SendSignals(std::set<AppKey>& keys, int signalNumber);
    void NoteEnd(const AppKey& key);
    void ReapOrphans();
    void EndProcesses();
    bool IsTreeGone(const AppKey& key, Process& process);
    bool HasDyingOrphan() const;
    static bool IsOutOfPatience(const Process& process);
    void Finish(const AppKey& key);
    void NoteExit(const AppKey& key, const Process& process, ExitStatus status);

    EventLoop& loop_;
    Deadlines& deadlines_;
    ProcMgr::StateFile& stateFile_;
    Timelines& timelines_;
    const ProcessHostSettings settings_;
    const std::string soHostPath_;
    const ProcessHostNews news_;
    AppHearts hearts_;

    std::map<AppKey, Process> processes_;
    std::set<pid_t> leaders_;
    std::map<AppKey, std::weak_ptr<ProcMgr::OutputLog>> logs_;  // of those whose pipes are not closed yet
    std::map<int, std::unique_ptr<ProcMgr::OutputPipe>> outputs_;
    std::set<AppKey> toTerm_;
    std::set<AppKey> toKill_;
    std::set<AppKey> ended_;
    bool hasChildNews_ = false;
    uint64_t lastSocket_ = 0;
};

}  // namespace Procmgrd

#endif
