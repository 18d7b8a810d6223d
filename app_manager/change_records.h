/// The bookkeeping of one start, terminate or restart run: which results are in, what may go out next. Each record is
/// filled when its run begins, settled by the threads that deliver reports while the run's thread waits on it, and
/// keeps its results until the next run. What is decided on them is in start_plan.h, term_plan.h and restart_plan.h.
#ifndef PROCMGR_APP_MANAGER_CHANGE_RECORDS_H
#define PROCMGR_APP_MANAGER_CHANGE_RECORDS_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app_manager/deadline_wait.h"
#include "common/enumerations.h"
#include "platform/include/depend_graph.h"

namespace ProcMgr {

/// Number of a report in the order in which reports met the applications. What is no report but the run's own finding
/// is newer than all of them.
inline constexpr uint64_t kNewestReport = UINT64_MAX;

/// Results of a run by application name.
using ChangeResults = std::map<std::string, AppChangeState>;

/// What makes a wake of the start loop cost as much as has changed, instead of as much as there is.
struct StartProgress {
    std::vector<std::string> freed;      ///< free vertices that no round has looked at yet
    std::vector<std::string> cameUp;     ///< vertices whose application may run by now without a result of this run
    std::set<std::string> dependencies;  ///< free vertices that nobody requested
    std::set<std::string> failed;        ///< free vertices whose result is a failure
    size_t processing = 0;               ///< number of results that are PROCESSING: commanded and not settled
    std::string lookBehind;              ///< the look for dependencies that come up begins behind this name
};

/// One start run. `mutex` guards everything in it.
struct StartAppInfo {
    ChangeResults results;
    DependGraph graph;
    std::mutex mutex;
    std::condition_variable condition;
    int32_t timeout = 0;       ///< ms, for the time-out message only
    bool hasProgress = false;  ///< a round would find something to do; cleared by the waiter
    bool closed = false;       ///< the run is over: its results stay as they are
    StartProgress progress;
};

/// One terminate run. Where both mutexes are needed, `resultsMutex` is taken first.
struct TermAppInfo {
    ChangeResults termAppsResult;
    std::mutex resultsMutex;  ///< guards `termAppsResult`
    DependGraph graph;
    std::mutex waitMutex;  ///< guards all but the results
    std::condition_variable condition;
    int32_t timeout = 0;               ///< ms, read by nobody
    bool hasProgress = true;           ///< there is a next wave, or none is left; true at first
    std::vector<std::string> freed;    ///< free vertices that were not handed over yet
    std::optional<Deadline> patience;  ///< of the waiter: every result begins it anew
};

/// One restart run. `mutex` guards everything in it.
struct RestartAppResultInfo {
    ChangeResults results;
    std::mutex mutex;
    std::condition_variable condition;
    int32_t timeout = 0;  ///< ms, read by nobody
    bool isComplete = false;
    size_t unsettled = 0;    ///< number of results that keep the run from being complete
    uint64_t staleUpTo = 0;  ///< reports up to this number speak of what was before the run
};

}  // namespace ProcMgr

#endif
