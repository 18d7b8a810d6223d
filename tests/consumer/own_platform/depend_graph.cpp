// The waves of a start or of a termination, the plain way: free is who waits for nobody.
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

// No graph of this platform has one.
void DependGraph::AddRelay(const std::string& name) {
    AddVertex(name);
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
    const auto gone = vertices_.find(name);
    if (gone == vertices_.end()) {
        return false;
    }
    Remove(gone, freed);
    return true;
}

void DependGraph::Remove(Vertices::iterator gone, std::vector<std::string>& freed) {
    for (const std::string& waiting : gone->second.waitedForBy) {
        std::set<std::string>& waitsFor = vertices_[waiting].waitsFor;
        waitsFor.erase(gone->first);
        if (waitsFor.empty()) {
            free_.insert(waiting);
            freed.push_back(waiting);
        }
    }
    for (const std::string& dependency : gone->second.waitsFor) {
        vertices_[dependency].waitedForBy.erase(gone->first);
    }
    free_.erase(gone->first);
    vertices_.erase(gone);
}
