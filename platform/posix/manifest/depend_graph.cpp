#include "platform/include/depend_graph.h"

#include <algorithm>

void DependGraph::AddVertex(const std::string& name) {
    if (vertices_.try_emplace(name).second) {
        free_.insert(name);
    }
}

void DependGraph::AddRelay(const std::string& name) {
    const auto [relay, isNew] = vertices_.try_emplace(name);
    if (isNew) {
        relay->second.isRelay = true;
        ++relays_;
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
    return vertices_.size() == relays_;
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
    if (found == vertices_.end() || found->second.isRelay) {
        return false;
    }
    std::vector<std::string> newlyFree;
    Remove(found, newlyFree);
    std::sort(newlyFree.begin(), newlyFree.end());
    freed.insert(freed.end(), newlyFree.begin(), newlyFree.end());
    return true;
}

void DependGraph::Remove(Vertices::iterator gone, std::vector<std::string>& freed) {
    std::vector<Vertices::iterator> leaving = {gone};
    while (!leaving.empty()) {
        const auto vertex = leaving.back();
        leaving.pop_back();
        for (const std::string& dependency : vertex->second.waitsFor) {
            vertices_.find(dependency)->second.waitedForBy.erase(vertex->first);
        }
        // A vertex that waits for itself is gone already from the list of those that wait for it.
        for (const std::string& name : vertex->second.waitedForBy) {
            const auto waiting = vertices_.find(name);
            waiting->second.waitsFor.erase(vertex->first);
            if (!waiting->second.waitsFor.empty()) {
                continue;
            }
            if (waiting->second.isRelay) {
                leaving.push_back(waiting);
            } else {
                free_.insert(name);
                freed.push_back(name);
            }
        }
        relays_ -= vertex->second.isRelay ? 1 : 0;
        free_.erase(vertex->first);
        vertices_.erase(vertex);
    }
}
