#include "app_manager/start_plan.h"

#include <utility>

namespace ProcMgr::StartPlan {

namespace {

void NoteFree(StartAppInfo& info, const std::string& name) {
    info.progress.freed.push_back(name);
    if (info.results.find(name) == info.results.end()) {
        info.progress.dependencies.insert(name);
    }
}

void SetResult(StartAppInfo& info, AppChangeState& result, AppChangeState state) {
    size_t& processing = info.progress.processing;
    if (result == AppChangeState::PROCESSING && processing > 0) {
        --processing;
    }
    if (state == AppChangeState::PROCESSING) {
        ++processing;
    }
    result = state;
}

Settlement SettleDependency(StartAppInfo& info, const std::string& name, AppChangeState state) {
    if (info.closed || info.progress.dependencies.count(name) == 0) {
        return Settlement::IGNORED;
    }
    if (state == AppChangeState::SUCCESS) {
        PopVertex(info, name);
    }
    info.hasProgress = true;
    return Settlement::TAKEN;
}

bool CanBeCommanded(const StartAppInfo& info, const std::string& name) {
    const auto result = info.results.find(name);
    return result != info.results.end() && IsOpen(result->second);
}

}  // namespace

bool IsOpen(AppChangeState state) {
    return state == AppChangeState::INIT || state == AppChangeState::PROCESSING;
}

void Reset(StartAppInfo& info) {
    info.results.clear();
    info.graph = DependGraph();
    info.progress = StartProgress();
    info.hasProgress = false;
}

void Open(StartAppInfo& info, const std::vector<std::string>& names, DependGraph graph) {
    for (const std::string& name : names) {
        info.results[name] = AppChangeState::INIT;
    }
    info.graph = std::move(graph);
    info.progress = StartProgress();
    for (const std::string& name : info.graph.GetNoDependVertices()) {
        NoteFree(info, name);
    }
    info.hasProgress = false;
    info.closed = false;
}

Round TakeRound(StartAppInfo& info, const std::unordered_set<std::string>& started) {
    Round round;
    round.isDone = info.graph.IsEmpty();
    round.canMove = info.progress.processing > 0;
    for (std::string& name : info.progress.freed) {
        round.canMove = round.canMove || CanBeCommanded(info, name);
        round.noDepends.insert(std::move(name));
    }
    for (std::string& name : info.progress.cameUp) {
        const bool isFree = started.count(name) != 0 || info.progress.dependencies.count(name) != 0;
        if (isFree) {
            round.noDepends.insert(std::move(name));
        }
    }
    info.progress.freed.clear();
    info.progress.cameUp.clear();
    return round;
}

std::vector<std::string> NextDependencies(const StartAppInfo& info, const std::string& after, size_t count) {
    const std::set<std::string>& dependencies = info.progress.dependencies;
    std::vector<std::string> names;
    for (auto it = dependencies.upper_bound(after); it != dependencies.end() && names.size() < count; ++it) {
        names.push_back(*it);
    }
    return names;
}

bool MarkCommanded(StartAppInfo& info, const std::string& name) {
    const auto result = info.results.find(name);
    if (result == info.results.end() || result->second != AppChangeState::INIT) {
        return false;
    }
    SetResult(info, result->second, AppChangeState::PROCESSING);
    return true;
}

bool PopVertex(StartAppInfo& info, const std::string& name) {
    std::vector<std::string> freed;
    if (!info.graph.Pop(name, freed)) {
        return false;
    }
    info.progress.dependencies.erase(name);
    for (const std::string& next : freed) {
        NoteFree(info, next);
    }
    info.hasProgress = true;
    return true;
}

Settlement Settle(StartAppInfo& info, const std::string& name, AppChangeState state, AppChangeState& stored) {
    const auto result = info.results.find(name);
    if (result == info.results.end()) {
        return SettleDependency(info, name, state);
    }
    if (info.closed || !IsOpen(result->second)) {
        if (state == AppChangeState::SUCCESS) {
            NoteCameUp(info, name);
        }
        stored = result->second;
        return Settlement::ALREADY;
    }
    SetResult(info, result->second, state);
    stored = state;
    if (state == AppChangeState::SUCCESS) {
        PopVertex(info, name);
    }
    info.hasProgress = true;
    return Settlement::TAKEN;
}

void NoteCameUp(StartAppInfo& info, const std::string& name) {
    if (!info.closed && !info.graph.IsEmpty()) {
        info.progress.cameUp.push_back(name);
    }
}

}  // namespace ProcMgr::StartPlan
