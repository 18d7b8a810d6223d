#include <algorithm>

#include "platform/include/depend_graph.h"

void DependGraph::AddVertex(const std::string& name) {
    if (vertices_.try_emplace(name).second) {
        free_.insert(name);
    }
}

void DependGraph::AddRelay(const std::string& name) {
    const auto [entry, isNew] = vertices_.try_emplace(name);
    if (isNew) {
        entry->second.isRelay = true;
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
    const std::string name = gone->first;
    const Vertex vertex = gone->second;
    relays_ -= vertex.isRelay ? 1 : 0;
    free_.erase(name);
    vertices_.erase(gone);
    for (const std::string& dependency : vertex.waitsFor) {
        const auto entry = vertices_.find(dependency);
        if (entry != vertices_.end()) {
            entry->second.waitedForBy.erase(name);
        }
    }
    for (const std::string& waiting : vertex.waitedForBy) {
        const auto entry = vertices_.find(waiting);
        if (entry == vertices_.end()) {
            continue;
        }
        entry->second.waitsFor.erase(name);
        if (!entry->second.waitsFor.empty()) {
            continue;
        }
        if (entry->second.isRelay) {
            Remove(entry, freed);
        } else {
            free_.insert(waiting);
            freed.push_back(waiting);
        }
    }
}
