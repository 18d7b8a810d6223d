#include "daemons/procmgrd/launch/resource_group.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>

namespace ProcMgr {
namespace {

struct Controller {
    const char* version1;
    const char* version2;
};

constexpr Controller kControllers[] = {{"cpu", "cpu"}, {"memory", "memory"}, {"cpuset", "cpuset"}, {"blkio", "io"}};
constexpr const char* kProcsFile = "/cgroup.procs";

bool Exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

bool IsGroupName(const std::string& group) {
    if (group.find('\0') != std::string::npos || group.front() == '/' || group.back() == '/') {
        return false;
    }
    std::istringstream levels(group);
    for (std::string level; std::getline(levels, level, '/');) {
        if (level.empty() || level == "." || level == "..") {
            return false;
        }
    }
    return true;
}

bool HasController(const std::string& root, const std::string& controller) {
    std::ifstream file(root + "/cgroup.controllers");
    const std::istream_iterator<std::string> end;
    return std::find(std::istream_iterator<std::string>(file), end, controller) != end;
}

/// The folder under which the controller's groups lie; empty when it is not mounted.
std::string HierarchyOf(const Controller& controller, const ResourceGroupRoots& roots) {
    const std::string version1 = roots.version1 + "/" + controller.version1;
    if (Exists(version1 + kProcsFile)) {
        return version1;
    }
    const auto found = std::find_if(roots.version2.begin(), roots.version2.end(), [&controller](const auto& root) {
        return HasController(root, controller.version2);
    });
    return found == roots.version2.end() ? std::string() : *found;
}

}  // namespace

ResourceGroupPlan FindResourceGroup(const std::string& group, const ResourceGroupRoots& roots) {
    if (group.empty()) {
        return {};
    }
    if (!IsGroupName(group)) {
        return {{}, EINVAL};
    }
    ResourceGroupPlan plan;
    for (const Controller& controller : kControllers) {
        const std::string hierarchy = HierarchyOf(controller, roots);
        const std::string file = hierarchy + "/" + group + kProcsFile;
        const bool isNew = std::find(plan.procsFiles.begin(), plan.procsFiles.end(), file) == plan.procsFiles.end();
        if (!hierarchy.empty() && isNew && Exists(file)) {
            plan.procsFiles.push_back(file);
        }
    }
    plan.error = plan.procsFiles.empty() ? ENOENT : 0;
    return plan;
}

}  // namespace ProcMgr
