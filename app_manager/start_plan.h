/// The decisions of a start run, without threads, applications or messages. Every operation is called with the record's
/// mutex held, and costs time proportional to what it changes (times the look-ups in ordered maps), never to the size
/// of the run.
///
/// A vertex is looked at in the round after it got free, and once more when NoteCameUp says that its application may
/// run by now. A round that looks at a requested vertex commands it; from then on its result is PROCESSING, until a
/// report settles it. A vertex leaves the graph when its application runs, and that may set others free.
#ifndef PROCMGR_APP_MANAGER_START_PLAN_H
#define PROCMGR_APP_MANAGER_START_PLAN_H

#include <cstddef>
#include <string>
#include <vector>

#include "app_manager/change_records.h"

namespace ProcMgr::StartPlan {

/// What one round of the start loop has to do.
struct Round {
    bool isDone = false;                 ///< the graph is empty
    bool canMove = false;                ///< something was commanded and is not settled, or can be commanded now
    std::vector<std::string> noDepends;  ///< the free vertices to look at, in name order
};

enum class Settlement {
    IGNORED,  ///< nobody waits for this name
    ALREADY,  ///< the result is final, or the run is over
    TAKEN,    ///< booked; the waiter is to be woken when there is progress
};

/// True for INIT and PROCESSING.
bool IsOpen(AppChangeState state);

/// Forgets the run before: no results, no graph.
void Reset(StartAppInfo& info);

/// Begins a run: every name waits for its result.
void Open(StartAppInfo& info, const std::vector<std::string>& names, DependGraph graph);

/// The free vertices that no round has looked at yet, and those noted by NoteCameUp.
Round TakeRound(StartAppInfo& info);

/// Up to `count` free vertices that nobody requested, in name order, behind `after`.
std::vector<std::string> NextDependencies(const StartAppInfo& info, const std::string& after, size_t count);

/// The command for the free vertex `name` is about to be sent; false when it is not waiting for one.
bool MarkCommanded(StartAppInfo& info, const std::string& name);

/// Takes a vertex out of the graph; false when it is not in it.
bool PopVertex(StartAppInfo& info, const std::string& name);

/// Books a result. A name that was not requested but is a free vertex takes part, too: its success sets others free,
/// and any news of it may end the wait.
/// `stored` gets the result that the run has for the name.
Settlement Settle(StartAppInfo& info, const std::string& name, AppChangeState state, AppChangeState& stored);

/// The application may run now although no result says so; the next round looks at it again.
void NoteCameUp(StartAppInfo& info, const std::string& name);

}  // namespace ProcMgr::StartPlan

#endif
