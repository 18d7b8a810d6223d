/// The strongly connected components of a directed graph of numbered vertices.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_STRONG_COMPONENTS_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_STRONG_COMPONENTS_H

#include <cstddef>
#include <vector>

namespace ProcMgr {

/// The successors of each vertex, by number.
using Successors = std::vector<std::vector<size_t>>;

/// Each component as the list of its vertices; one comes after every component that it reaches. Costs time
/// proportional to vertices and edges, and does not recurse.
[[nodiscard]] std::vector<std::vector<size_t>> StrongComponents(const Successors& successors);

}  // namespace ProcMgr

#endif
