/// What is done with the results of any run once its waiting is over. Pure; the caller holds the run's mutex.
#ifndef PROCMGR_APP_MANAGER_CHANGE_RESULTS_H
#define PROCMGR_APP_MANAGER_CHANGE_RESULTS_H

#include <string>
#include <vector>

#include "app_manager/change_records.h"
#include "common/app_records.h"

namespace ProcMgr {

/// The names of a request in its order.
std::vector<std::string> NamesOf(const std::vector<AppInfoForServer>& list);

/// For a run that broke before it had entered its names: enters them as waiting. Nothing when there are results.
void EnterNames(ChangeResults& results, const std::vector<AppInfoForServer>& list);

/// Turns every result that is still INIT into `failure`.
void FailWaiting(ChangeResults& results, AppChangeState failure);

/// Appends the results to `merged` in name order, and returns those that are no success.
std::vector<AppChangeInfo> AppendResults(const ChangeResults& results, std::vector<AppChangeInfo>& merged);

}  // namespace ProcMgr

#endif
