/// The way of a child from its beginning to exec. Everything in the plan was made before; nothing here allocates, locks
/// or throws, and nothing but the plan's own digits is written, since the memory is the daemon's.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_CHILD_SETUP_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_CHILD_SETUP_H

#include <sched.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "daemons/procmgrd/launch/launcher.h"

namespace ProcMgr {

inline constexpr size_t kLaunchStageCount = static_cast<size_t>(LaunchStage::EXEC) + 1;

/// Digits of the largest number of a process.
inline constexpr size_t kPidDigits = 10;

/// The first word of a child, or the last one of who made it or tried to.
struct ChildHello {
    uint32_t serial = 0;  ///< of the child
    pid_t pid = 0;        ///< or minus an errno
};

struct ChildPlan {
    int nullFd = -1;
    int outputFd = -1;
    int goFd = -1;       ///< one byte: go on; end of the stream: the daemon is gone
    int goWriteFd = -1;  ///< the daemon's end of it, of which the child has a copy
    int helloFd = -1;    ///< takes the child's first word
    ChildHello hello;    ///< that word, but for the number
    int reportFd = -1;
    int highestFd = -1;             ///< when the kernel cannot close a range of descriptors
    std::vector<char*> groupFiles;  ///< these three end with a null pointer
    std::vector<char*> argv;
    std::vector<char*> environment;
    char* pidDigits = nullptr;  ///< in one of the environment's texts: room for kPidDigits and the end; or null
    const char* executable = nullptr;
    bool hasCores = false;
    cpu_set_t cores{};
    int schedulingClass = kNoSchedulingClass;
    int schedulingPriority = 0;
    bool changesIdentity = false;
    bool claimsAsRoot = true;  ///< resources first, then the identity; otherwise the other way round
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;
    int parentDeathSignal = 0;
    pid_t parent = -1;
    std::array<bool, kLaunchStageCount> isFatal{};
};

/// One message of the child, written in one piece.
struct ChildReport {
    uint32_t isFatal = 0;
    LaunchStage stage = LaunchStage::NONE;
    int32_t error = 0;
};

/// -1 when the kernel can close a range; otherwise the highest descriptor in use.
int HighestFdWithoutCloseRange();

/// Becomes the application, or reports and ends with the exit code 127.
[[noreturn]] void RunChild(const ChildPlan& plan);

}  // namespace ProcMgr

#endif
