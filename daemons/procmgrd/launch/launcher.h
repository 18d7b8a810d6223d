/// Starts one application.
///
/// Everything is prepared before there is a child; until its exec the child makes system calls and nothing else. It
/// becomes the leader of a session of its own, gets default signal dispositions and an empty mask, /dev/null as
/// standard input, `outputFd` as standard output and error, and no other descriptor. What fails comes back through a
/// pipe that the exec closes, as a stage and an errno.
///
/// An attribute that cannot be applied is a warning, unless the manifest says that it must hold. One exception: a
/// daemon that runs as root never runs an application with more rights than asked for; there a failed change of uid,
/// gid or groups always ends the start.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_LAUNCHER_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_LAUNCHER_H

#include <cstdint>
#include <functional>
#include <vector>

#include "daemons/procmgrd/launch/launch_spec.h"
#include "daemons/procmgrd/launch/process_tree.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

enum class LaunchStage : uint32_t {
    NONE = 0,            ///< it was started
    PREPARE = 1,         ///< before there is a child: no descriptors
    FORK = 2,            ///< no process
    RECORD = 3,          ///< `beforeExec` said no; ECANCELED
    SESSION = 4,         ///
    STDIO = 5,           ///
    RESOURCE_GROUP = 6,  ///< res_group_name
    AFFINITY = 7,        ///< core_affinity
    REAL_TIME = 8,       ///< set_rt_type, set_rt_prio
    GROUPS = 9,          ///< the supplementary groups; counts as gid
    GID = 10,            ///
    UID = 11,            ///
    PARENT_DEATH = 12,   ///
    EXEC = 13,           ///< ENOENT, EACCES, ENOEXEC, EIO, ...; ETIMEDOUT: gave up waiting
};

/// "exec", "uid", ...: for messages.
const char* LaunchStageName(LaunchStage stage);

struct LaunchResult {
    ProcessId process;                      ///< pid -1 when it was not started
    UniqueFd pidfd;                         ///< readable when the process ends; open exactly when it was started
    LaunchStage stage = LaunchStage::NONE;  ///< where it failed
    int error = 0;                          ///< errno of the failure; 0 when it was started
    std::vector<LaunchWarning> warnings;    ///< all of them, those found by BuildLaunchSpec first

    bool Ok() const { return stage == LaunchStage::NONE; }
};

/// Called in the daemon with the process that is about to become the application, before the exec. What it writes
/// down (the state file) is there before the application can do anything. If the daemon dies inside, or returns false,
/// the process ends without having run the application.
using BeforeExec = std::function<bool(const ProcessId& process)>;

/// Starts the application and waits for its exec, at most `spec.execWaitMs`; usually below a millisecond. After that
/// time the child is killed and left to be reaped with the orphans. A file system that hangs inside exec can hold the
/// child, but not the daemon, for longer. On every other failure the child is reaped when this returns.
/// The caller must not reap foreign children meanwhile from another thread; call it from the loop's thread.
[[nodiscard]] LaunchResult Launch(const LaunchSpec& spec, const BeforeExec& beforeExec = {});

}  // namespace ProcMgr

#endif
