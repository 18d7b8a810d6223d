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
}

void Open(RestartAppResultInfo& info, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        info.results[name] = AppChangeState::INIT;
    }
    info.unsettled = info.results.size();
    info.isComplete = false;
}

Settlement Settle(RestartAppResultInfo& info, const std::string& name, AppChangeState state, AppChangeState& stored) {
    const auto result = info.results.find(name);
    if (result == info.results.end()) {
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
