/// The decisions of a terminate run, without threads, applications or messages. Every vertex of the graph is handed out
/// once; it leaves the graph with its result, whatever that is, and that may set others free.
#ifndef PROCMGR_APP_MANAGER_TERM_PLAN_H
#define PROCMGR_APP_MANAGER_TERM_PLAN_H

#include <string>
#include <vector>

#include "app_manager/change_records.h"

namespace ProcMgr::TermPlan {

enum class Settlement {
    UNKNOWN,  ///< the name takes no part in the run
    ALREADY,  ///< it has its result
    TAKEN,    ///< booked; PopVertex is to follow
};

/// Forgets the results of the run before. With both mutexes held.
void Reset(TermAppInfo& info);

/// Begins a run: every name waits for its result, and the first wave is free. With both mutexes held.
void Open(TermAppInfo& info, const std::vector<std::string>& names, DependGraph graph);

/// The free vertices that were not handed out yet, in name order. With `waitMutex` held.
std::vector<std::string> TakeWave(TermAppInfo& info);

/// Takes out of `wave` who is not to be commanded: a name that has its result by now, and one that nobody asked to
/// terminate, which leaves the graph as well. With both mutexes held.
void DropUnwanted(TermAppInfo& info, std::vector<std::string>& wave);

/// Books a result; `stored` gets the one that the run has for the name, if any. With `resultsMutex` held.
Settlement Settle(TermAppInfo& info, const std::string& name, AppChangeState state, AppChangeState& stored);

/// Takes a vertex out of the graph; the waiter is to be woken when there is progress. With `waitMutex` held.
void PopVertex(TermAppInfo& info, const std::string& name);

}  // namespace ProcMgr::TermPlan

#endif
