/// Where a resource group of control groups lives on this machine.
///
/// A group is a folder of that name in the hierarchy of a controller: version 1 under <root>/cpu, <root>/memory,
/// <root>/cpuset and <root>/blkio, or version 2, whichever is mounted with the controller. Groups and their limits are
/// made by whoever sets up the machine; a started application is only moved into them.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_RESOURCE_GROUP_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_RESOURCE_GROUP_H

#include <string>
#include <vector>

namespace ProcMgr {

struct ResourceGroupRoots {
    std::string version1 = "/sys/fs/cgroup";                                           ///< holds cpu, memory, ...
    std::vector<std::string> version2 = {"/sys/fs/cgroup", "/sys/fs/cgroup/unified"};  ///< tried in this order
};

struct ResourceGroupPlan {
    std::vector<std::string> procsFiles;  ///< the files that take the process in by its number
    int error = 0;                        ///< why there are none: ENOENT no such group, EINVAL no name for a group
};

/// Looks the group up in each hierarchy; those that do not have it are left out. A name may have several levels
/// ("base/cameras"), but no empty one, no "." and no "..". An empty name is no group: no files and no error.
ResourceGroupPlan FindResourceGroup(const std::string& group, const ResourceGroupRoots& roots);

}  // namespace ProcMgr

#endif
