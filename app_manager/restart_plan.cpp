#include "app_manager/restart_plan.h"

namespace ProcMgr::RestartPlan {

namespace {

bool IsOutcome(AppChangeState state) {
    return state == AppChangeState::SUCCESS || state == AppChangeState::RESTART_FAILED ||
           state == AppChangeState::START_FAILED_BY_EIO;
}

}  // namespace

void Reset(RestartAppResultInfo& info) {
    info.results.clear();
    info.unsettled = 0;
    info.isComplete = false;
    info.staleUpTo = 0;
}

void Open(RestartAppResultInfo& info, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        info.results[name] = AppChangeState::INIT;
    }
    info.unsettled = info.results.size();
    info.isComplete = false;
    info.staleUpTo = kNewestReport;
}

void HeedFrom(RestartAppResultInfo& info, uint64_t report) {
    info.staleUpTo = report;
}

Settlement Settle(RestartAppResultInfo& info, const std::string& name, AppChangeState state, uint64_t report,
                  AppChangeState& stored) {
    const auto result = info.results.find(name);
    if (result == info.results.end() || report <= info.staleUpTo) {
        return Settlement::IGNORED;
    }
    if (result->second != AppChangeState::INIT) {
        stored = result->second;
        return Settlement::ALREADY;
    }
    result->second = state == AppChangeState::START_FAILED ? AppChangeState::RESTART_FAILED : state;
    stored = result->second;
    if (IsOutcome(result->second) && info.unsettled > 0) {
        --info.unsettled;
    }
    info.isComplete = info.isComplete || info.unsettled == 0;
    return Settlement::TAKEN;
}

}  // namespace ProcMgr::RestartPlan
