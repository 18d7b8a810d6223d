#include "platform/include/depend_graph.h"

void DependGraph::AddVertex(const std::string& name) {
    if (vertices_.try_emplace(name).second) {
        free_.insert(name);
    }
}

void DependGraph::AddEdge(const std::string& name, const std::string& dependency) {
    AddVertex(name);
    AddVertex(dependency);
    vertices_[name].waitsFor.insert(dependency);
    vertices_[dependency].waitedForBy.insert(name);
    free_.erase(name);
}

bool DependGraph::IsEmpty() const {
    return vertices_.empty();
}

std::set<std::string> DependGraph::GetNoDependVertices() const {
    return free_;
}

bool DependGraph::Pop(const std::string& name) {
    std::vector<std::string> freed;
    return Pop(name, freed);
}

bool DependGraph::Pop(const std::string& name, std::vector<std::string>& freed) {
    const auto found = vertices_.find(name);
    if (found == vertices_.end()) {
        return false;
    }
    const Vertex gone = found->second;
    vertices_.erase(found);
    free_.erase(name);
    for (const std::string& dependency : gone.waitsFor) {
        const auto vertex = vertices_.find(dependency);
        if (vertex != vertices_.end()) {
            vertex->second.waitedForBy.erase(name);
        }
    }
    for (const std::string& waiting : gone.waitedForBy) {
        const auto vertex = vertices_.find(waiting);
        if (vertex == vertices_.end()) {
            continue;
        }
        vertex->second.waitsFor.erase(name);
        if (vertex->second.waitsFor.empty()) {
            free_.insert(waiting);
            freed.push_back(waiting);
        }
    }
    return true;
}
