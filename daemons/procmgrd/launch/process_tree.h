/// The processes of one started application, and signals to all of them.
///
/// An application starts as the leader of its own session. To its tree belong, as long as they live:
///  - the leader, and every descendant that the parent links lead to, whatever session or group it made for itself;
///  - every member of the leader's session or process group, and the descendants of those;
///  - a descendant that has lost its way up (its parents ended, it made its own session): it is known by the
///    PROCMGR_APP_NAME, PROCMGR_OWNER and PROCMGR_RUN_DIR that it inherited.
/// The daemon is a child subreaper, so the last kind becomes a child of the daemon and can be reaped there.
///
/// Numbers of processes are used again by the kernel. A process is therefore named by number and start time; every
/// signal goes through a descriptor of the process that was opened before the start time was compared.
///
/// Reads /proc and sends signals; keeps no state, starts no thread. `procRoot` is for tests.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_PROCESS_TREE_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_PROCESS_TREE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

inline constexpr const char* kProcRoot = "/proc";

/// One process, once and for all: number, and start time in clock ticks since boot as /proc/<pid>/stat tells it.
struct ProcessId {
    pid_t pid = -1;
    uint64_t startTime = 0;

    bool operator==(const ProcessId& other) const { return pid == other.pid && startTime == other.startTime; }
    bool operator<(const ProcessId& other) const {
        return pid != other.pid ? pid < other.pid : startTime < other.startTime;
    }
};

struct ProcessStat {
    ProcessId id;
    char state = '?';  ///< 'Z' and 'X': it has ended and waits to be reaped
    pid_t parent = -1;
    pid_t group = -1;
    pid_t session = -1;

    bool HasEnded() const { return state == 'Z' || state == 'X'; }
};

/// What to look for. With an empty `appName` nobody is found by its environment.
struct TreeRoot {
    ProcessId leader;
    std::string appName;
    std::string owner;
    std::string runDir;
};

/// The children of all threads of a process; none when this kernel does not tell.
std::optional<std::vector<pid_t>> ChildrenOf(pid_t pid);

/// Empty when there is no such process or its record cannot be read.
std::optional<ProcessStat> ReadProcessStat(pid_t pid, const std::string& procRoot = kProcRoot);

/// True while exactly this process lives; a zombie does not.
bool IsAlive(const ProcessId& process, const std::string& procRoot = kProcRoot);

/// One look at /proc: every process of that moment by its number. Costs about ten microseconds per process.
using ProcessTable = std::map<pid_t, ProcessStat>;
ProcessTable ReadProcessTable(const std::string& procRoot = kProcRoot);

/// The live processes of each tree in that table, the leader first. A leader that has ended but is not yet reaped still
/// vouches for its session; once reaped, its number may be somebody else's, and members of the session are only taken
/// when their environment names the application too. So signal what is left of a tree before reaping its leader.
/// Looks into the environment of other processes of the table, once for all trees. Never contains the calling process
/// or one of its ancestors.
std::vector<std::vector<ProcessId>> FindTrees(const ProcessTable& table, const std::vector<TreeRoot>& roots,
                                              const std::string& procRoot = kProcRoot);

/// A descriptor of exactly that process, or none when it is gone.
UniqueFd OpenProcess(const ProcessId& process, const std::string& procRoot = kProcRoot);

/// Sends a signal to one process. False when it is gone or may not be signalled.
bool SignalProcess(const ProcessId& process, int signalNumber, const std::string& procRoot = kProcRoot);

/// Sends the signal once to each process of each tree and returns those that got it. Never blocks. SIGKILL is repeated
/// for processes that appear meanwhile (at most kSignalRounds looks), so that a child made just then does not escape;
/// other signals go to those that one look shows.
///
/// `leaders`: the numbers of all processes that Launch started and that are not reaped yet. As long as this process has
/// no other child, each tree is found by its parent links alone, which costs a few file reads per process of the tree
/// and nothing for other applications; otherwise the whole of /proc is looked through, once for all `roots`.
inline constexpr int kSignalRounds = 5;
std::set<ProcessId> SignalTrees(const std::vector<TreeRoot>& roots, int signalNumber, const std::set<pid_t>& leaders);
std::set<ProcessId> SignalTree(const TreeRoot& root, int signalNumber, const std::set<pid_t>& leaders);

/// True when `pid` is the leader or belongs to it by parent links, session or process group; its environment is not
/// asked, since a process can choose it. For the check of a sender's kernel credentials. A process that is gone
/// already belongs to nobody.
bool BelongsTo(pid_t pid, const ProcessId& leader, const std::string& procRoot = kProcRoot);

}  // namespace ProcMgr

#endif
