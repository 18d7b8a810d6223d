/// Everything that is needed to start one application, decided before anything is done.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_LAUNCH_SPEC_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_LAUNCH_SPEC_H

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "daemons/procmgrd/launch/resource_group.h"
#include "platform/include/application_manifest.h"

namespace ProcMgr {

/// An attribute of the manifest that does not hold for the process that was started.
struct LaunchWarning {
    std::string attribute;  ///< the manifest's key, or "NAME of env_argv"
    int error = 0;          ///< errno
};

/// "Application cam: core_affinity was not applied: Operation not permitted", a line for the daemon's log.
std::string DescribeWarning(const std::string& appName, const LaunchWarning& warning);

/// Who asks for the start, as the kernel vouches for it (SO_PEERCRED, SO_PEERGROUPS).
struct OwnerIdentity {
    uint32_t uid = 0;
    uint32_t gid = 0;
    std::vector<uint32_t> groups;
};

/// One request to start, and what the daemon knows that the manifest does not.
struct LaunchRequest {
    std::string instanceName;                                 ///< empty: the manifest's own name
    std::vector<std::string> arguments;                       ///< empty: the manifest's own arguments
    std::map<int32_t, std::vector<std::string>> dynamicPara;  ///< values by index
    OwnerIdentity owner;
    std::string ownerName;  ///< as its pipe hello carries it
    std::string runDir;
    std::string appSocketPath;       ///< handed to applications that tell about themselves
    uint32_t heartBeatPeriodMs = 0;  ///< told to applications whose hearts are watched, as is the next; 0: nothing
    uint32_t heartBeatMisses = 0;    ///< periods without a beat after which it is lost
    std::string soHostPath;          ///< runs shared objects without a process_bind_path; see FindSoHost
    int outputFd = -1;               ///< takes standard output and error, stays the caller's; -1: /dev/null
    /// Supplementary groups of a uid with that primary gid; empty: the system's user database is asked.
    std::function<std::vector<uint32_t>(uint32_t uid, uint32_t gid)> groupsOf;
};

inline constexpr int kNoSchedulingClass = -1;

/// An application whose readiness the group waits for.
bool IsSelfReporting(const ApplicationManifest& manifest);

/// One that has something to tell the process manager, so that it needs an address for that.
bool TellsAboutItself(const ApplicationManifest& manifest);

struct LaunchSpec {
    std::string appName;
    std::string executable;
    std::vector<std::string> argv;
    std::vector<std::string> environment;  ///< "NAME=value", each name once
    std::string pidVariable;               ///< the name of one more, whose value is the new process's number; or empty
    uint32_t uid = 0;
    uint32_t gid = 0;
    std::vector<uint32_t> groups;
    /// False: resources are claimed with the rights of `uid` only, so that an owner gains nothing by asking us.
    bool ownerIsRoot = true;
    std::vector<int32_t> coreAffinity;
    int schedulingClass = kNoSchedulingClass;  ///< SCHED_FIFO, ...
    int schedulingPriority = 0;
    std::string resourceGroup;
    ResourceGroupRoots resourceGroupRoots;
    std::set<std::string> mustHold;  ///< manifest keys without which it must not run
    int outputFd = -1;
    int parentDeathSignal = 0;            ///< sent by the kernel when the daemon's thread ends; 0: none
    int execWaitMs = 5000;                ///< longest time that Launch waits for the exec
    std::vector<LaunchWarning> warnings;  ///< found while it was built
};

/// Fills `spec`. False when the application must not be started like that; `refusal` then says why, in a sentence that
/// names the application, and `spec` is untouched. Asks the user database, otherwise pure.
///
/// Identity: an owner that is root may run applications under any uid and gid. Any other owner runs them under its own
/// uid and one of its own gids only; for it, a uid or gid of 0 means that the manifest names none: its own are taken,
/// unless "uid" or "gid" must hold. Its supplementary groups are the owner's.
[[nodiscard]] bool BuildLaunchSpec(const ApplicationManifest& manifest, const LaunchRequest& request, LaunchSpec& spec,
                                   std::string& refusal);

/// The program that runs shared objects: the environment variable PROCMGR_SO_HOST, otherwise "procmgr-so-host" beside
/// the executable of this process.
std::string FindSoHost();

}  // namespace ProcMgr

#endif
