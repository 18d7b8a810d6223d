/// The order in which the daemon ends everything: an application after all those of the same owner that depend on it.
/// Pure.
#ifndef PROCMGR_PROCMGRD_STOP_PLAN_H
#define PROCMGR_PROCMGRD_STOP_PLAN_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "daemons/procmgrd/supervisor.h"
#include "platform/include/depend_graph.h"

namespace Procmgrd {

class StopPlan {
public:
    /// Applications that are not added don't count as dependencies either, whatever the order of the calls.
    void Add(const AppKey& key, const std::set<std::string>& depends);

    /// Those that nobody waits for; call it once, after all are added.
    std::vector<AppKey> Begin();

    /// `key` has ended: those that may be ended now.
    std::vector<AppKey> Ended(const AppKey& key);

private:
    std::map<AppKey, std::set<std::string>> depends_;
    std::map<std::string, DependGraph> graphs_;
};

}  // namespace Procmgrd

#endif
