/// @file
/// What is left of one wave-wise start or termination. A copyable value without a lock of its own.
///
/// Vertices are application names, an edge leads from a vertex to one that must be done before it. A vertex is free
/// when no edge leaves it any more. Vertices of a cycle never get free.
#ifndef PROCMGR_PLATFORM_DEPEND_GRAPH_H
#define PROCMGR_PLATFORM_DEPEND_GRAPH_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/include/platform_export.h"

/// The graph itself; one thread at a time.
class PROCMGR_PLATFORM_API DependGraph {
public:
    /// Makes a graph without vertices.
    DependGraph() = default;

    /// Adds a vertex; one that is there already stays as it is.
    void AddVertex(const std::string& name);

    /// `name` waits for `dependency`; both become vertices.
    void AddEdge(const std::string& name, const std::string& dependency);

    /// A vertex that stands for a name outside the graph: it waits and is waited for, but is not seen. It is never
    /// among the free vertices, Pop does not find it, IsEmpty does not count it, and it goes by itself when it waits
    /// for nothing more. It needs an edge to wait for. n names that wait for m others through it cost n + m edges.
    void AddRelay(const std::string& name);

    /// True when no vertex is left.
    bool IsEmpty() const;

    /// The free vertices. Costs time proportional to their number.
    std::set<std::string> GetNoDependVertices() const;

    /// Removes a vertex and its edges; true if it was there. Costs time proportional to the edges removed.
    bool Pop(const std::string& name);

    /// As Pop, and appends the vertices that became free by it, in name order. Lets a caller follow the waves without
    /// asking for the whole set of free vertices after each step.
    bool Pop(const std::string& name, std::vector<std::string>& freed);

private:
    struct Vertex {
        std::set<std::string> waitsFor;
        std::set<std::string> waitedForBy;
        bool isRelay = false;
    };
    using Vertices = std::map<std::string, Vertex>;

    void Remove(Vertices::iterator gone, std::vector<std::string>& freed);

    Vertices vertices_;
    std::set<std::string> free_;
    std::size_t relays_ = 0;
};

#endif
