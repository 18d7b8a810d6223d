#include "app_manager/term_plan.h"

#include <utility>

namespace ProcMgr::TermPlan {

void Reset(TermAppInfo& info) {
    info.termAppsResult.clear();
    info.hasProgress = true;
}

void Open(TermAppInfo& info, const std::vector<std::string>& names, DependGraph graph) {
    for (const std::string& name : names) {
        info.termAppsResult[name] = AppChangeState::INIT;
    }
    info.graph = std::move(graph);
    const std::set<std::string> free = info.graph.GetNoDependVertices();
    info.freed.assign(free.begin(), free.end());
    info.hasProgress = true;
}

std::set<std::string> TakeWave(TermAppInfo& info) {
    std::set<std::string> wave(info.freed.begin(), info.freed.end());
    info.freed.clear();
    return wave;
}

void DropUnwanted(TermAppInfo& info, std::set<std::string>& wave) {
    for (auto it = wave.begin(); it != wave.end();) {
        const auto result = info.termAppsResult.find(*it);
        const bool isRequested = result != info.termAppsResult.end();
        if (isRequested && result->second == AppChangeState::INIT) {
            ++it;
            continue;
        }
        if (!isRequested) {
            PopVertex(info, *it);
        }
        it = wave.erase(it);
    }
}

Settlement Settle(TermAppInfo& info, const std::string& name, AppChangeState state, AppChangeState& stored) {
    const auto result = info.termAppsResult.find(name);
    if (result == info.termAppsResult.end()) {
        return Settlement::UNKNOWN;
    }
    if (result->second != AppChangeState::INIT) {
        stored = result->second;
        return Settlement::ALREADY;
    }
    result->second = state;
    stored = state;
    return Settlement::TAKEN;
}

void PopVertex(TermAppInfo& info, const std::string& name) {
    info.graph.Pop(name, info.freed);
    info.hasProgress = true;
}

}  // namespace ProcMgr::TermPlan
