#include "daemons/procmgrd/stop_plan.h"

namespace Procmgrd {

void StopPlan::Add(const AppKey& key, const std::set<std::string>& depends) {
    depends_[key] = depends;
}

std::vector<AppKey> StopPlan::Begin() {
    for (const auto& [key, depends] : depends_) {
        DependGraph& graph = graphs_[key.owner];
        graph.AddVertex(key.app);
        for (const std::string& dependency : depends) {
            if (depends_.count({key.owner, dependency}) != 0) {
                graph.AddEdge(dependency, key.app);
            }
        }
    }
    std::vector<AppKey> ready;
    for (const auto& [owner, graph] : graphs_) {
        for (const std::string& app : graph.GetNoDependVertices()) {
            ready.push_back({owner, app});
        }
    }
    return ready;
}

std::vector<AppKey> StopPlan::Ended(const AppKey& key) {
    std::vector<std::string> freed;
    const auto graph = graphs_.find(key.owner);
    if (graph != graphs_.end()) {
        static_cast<void>(graph->second.Pop(key.app, freed));
    }
    std::vector<AppKey> ready;
    ready.reserve(freed.size());
    for (const std::string& app : freed) {
        ready.push_back({key.owner, app});
    }
    return ready;
}

}  // namespace Procmgrd
