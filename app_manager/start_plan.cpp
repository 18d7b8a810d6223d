#include "app_manager/start_plan.h"

#include <algorithm>
#include <iterator>
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

/// Most reports of a wide wave set nothing free, and a round for each of them would find nothing to do.
void NoteProgress(StartAppInfo& info) {
    const StartProgress& progress = info.progress;
    const bool isWorthARound =
        progress.processing == 0 || !progress.freed.empty() || !progress.cameUp.empty() || info.graph.IsEmpty();
    info.hasProgress = info.hasProgress || isWorthARound;
}

Settlement SettleDependency(StartAppInfo& info, const std::string& name, AppChangeState state) {
    if (info.closed || info.progress.dependencies.count(name) == 0) {
        return Settlement::IGNORED;
    }
    if (state == AppChangeState::SUCCESS) {
        PopVertex(info, name);
    }
    NoteProgress(info);
    return Settlement::TAKEN;
}

bool CanBeCommanded(const StartAppInfo& info, const std::string& name) {
    const auto result = info.results.find(name);
    return result != info.results.end() && IsOpen(result->second);
}

/// Of the free vertices only those are not seen by this that no round has looked at yet.
bool IsKnownToBeFree(const StartAppInfo& info, const std::string& name) {
    if (info.progress.dependencies.count(name) != 0 || info.progress.failed.count(name) != 0) {
        return true;
    }
    const auto result = info.results.find(name);
    return result != info.results.end() && result->second == AppChangeState::PROCESSING;
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

Round TakeRound(StartAppInfo& info) {
    StartProgress& progress = info.progress;
    Round round;
    round.isDone = info.graph.IsEmpty();
    round.canMove =
        progress.processing > 0 || std::any_of(progress.freed.begin(), progress.freed.end(),
                                               [&info](const std::string& name) { return CanBeCommanded(info, name); });
    round.noDepends.swap(progress.freed);
    std::copy_if(progress.cameUp.begin(), progress.cameUp.end(), std::back_inserter(round.noDepends),
                 [&info](const std::string& name) { return IsKnownToBeFree(info, name); });
    progress.cameUp.clear();
    if (!std::is_sorted(round.noDepends.begin(), round.noDepends.end())) {
        std::sort(round.noDepends.begin(), round.noDepends.end());
    }
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
    if (result == info.results.end()) {
        return false;
    }
    if (result->second == AppChangeState::INIT) {
        SetResult(info, result->second, AppChangeState::PROCESSING);
        return true;
    }
    if (!IsOpen(result->second)) {
        // Its result came from elsewhere before it was free.
        info.progress.failed.insert(name);
    }
    return false;
}

bool PopVertex(StartAppInfo& info, const std::string& name) {
    std::vector<std::string> freed;
    if (!info.graph.Pop(name, freed)) {
        return false;
    }
    info.progress.dependencies.erase(name);
    info.progress.failed.erase(name);
    for (const std::string& next : freed) {
        NoteFree(info, next);
    }
    NoteProgress(info);
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
    const bool wasCommanded = result->second == AppChangeState::PROCESSING;
    SetResult(info, result->second, state);
    stored = state;
    if (state == AppChangeState::SUCCESS) {
        PopVertex(info, name);
    } else if (wasCommanded) {
        info.progress.failed.insert(name);
    }
    NoteProgress(info);
    return Settlement::TAKEN;
}

void NoteCameUp(StartAppInfo& info, const std::string& name) {
    if (!info.closed && !info.graph.IsEmpty()) {
        info.progress.cameUp.push_back(name);
    }
}

}  // namespace ProcMgr::StartPlan
