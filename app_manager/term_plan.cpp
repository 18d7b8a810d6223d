#include "app_manager/term_plan.h"

#include <algorithm>
#include <set>
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
    info.patience.reset();
    info.hasProgress = true;
}

std::vector<std::string> TakeWave(TermAppInfo& info) {
    std::vector<std::string> wave;
    wave.swap(info.freed);
    if (!std::is_sorted(wave.begin(), wave.end())) {
        std::sort(wave.begin(), wave.end());
    }
    return wave;
}

void DropUnwanted(TermAppInfo& info, std::vector<std::string>& wave) {
    const auto isUnwanted = [&info](const std::string& name) {
        const auto result = info.termAppsResult.find(name);
        if (result == info.termAppsResult.end()) {
            PopVertex(info, name);
            return true;
        }
        return result->second != AppChangeState::INIT;
    };
    wave.erase(std::remove_if(wave.begin(), wave.end(), isUnwanted), wave.end());
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
    info.hasProgress = info.hasProgress || !info.freed.empty() || info.graph.IsEmpty();
}

}  // namespace ProcMgr::TermPlan
