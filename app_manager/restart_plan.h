/// The decisions of a restart run, without threads, applications or messages. Every operation is called with the
/// record's mutex held.
#ifndef PROCMGR_APP_MANAGER_RESTART_PLAN_H
#define PROCMGR_APP_MANAGER_RESTART_PLAN_H

#include <cstdint>
#include <string>
#include <vector>

#include "app_manager/change_records.h"

namespace ProcMgr::RestartPlan {

enum class Settlement {
    IGNORED,  ///< the name takes no part in the run, or the report is older than the run
    ALREADY,  ///< it has its result
    TAKEN,    ///< booked
};

/// Forgets the run before.
void Reset(RestartAppResultInfo& info);

/// Begins a run: every name waits for its result. Nothing is booked until HeedFrom.
void Open(RestartAppResultInfo& info, const std::vector<std::string>& names);

/// From now on results of reports behind the number `report` are booked. Called before the run looks at its first
/// application: an older report, offered late, has done its part to the state that the run finds.
void HeedFrom(RestartAppResultInfo& info, uint64_t report);

/// Books a result; a failed start is a failed restart here. With the last one the run is complete, and the waiter is to
/// be woken. `stored` gets the result that the run has for the name, if any.
Settlement Settle(RestartAppResultInfo& info, const std::string& name, AppChangeState state, uint64_t report,
                  AppChangeState& stored);

}  // namespace ProcMgr::RestartPlan

#endif
