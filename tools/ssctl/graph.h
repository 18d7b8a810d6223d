/// The dependencies of a group as a picture: what depends on what, and what is wrong with it.
#ifndef SSCTL_GRAPH_H
#define SSCTL_GRAPH_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "tools/ssctl/outcome.h"

namespace Ssctl {

enum class NodeKind {
    BASE,      ///< started at boot
    DRIVING,   ///< started on request
    TEMPLATE,  ///< instances are made of it
    INSTANCE,  ///< something depends on it
    UNKNOWN,   ///< something depends on it, and no manifest describes it
};

struct GraphNode {
    std::string name;
    NodeKind kind = NodeKind::DRIVING;
    std::vector<std::string> depends;  ///< of an instance: its template
    size_t cycle = 0;                  ///< nodes of one dependency cycle have one number; 0: in none
    std::string state;                 ///< its name, as "ssctl state" prints it; may be empty
};

struct Graph {
    std::vector<GraphNode> nodes;  ///< manifests in reading order, then what they only name
    size_t errors = 0;             ///< of reading: some manifests may be missing
};

/// Of manifests with unique names.
[[nodiscard]] Graph BuildGraph(const std::vector<ProcMgr::ManifestEntry>& entries);

/// Of the manifests under a path, read as the daemons do.
[[nodiscard]] Graph ReadGraph(const std::string& path);

/// Gives the applications the states that the document of "state" tells.
void AddStates(const nlohmann::ordered_json& stateMembers, Graph& graph);

/// In the language of Graphviz.
[[nodiscard]] std::string WriteDot(const Graph& graph);

/// The text is the picture in the language of Graphviz.
[[nodiscard]] Outcome ReportGraph(const std::string& path, const Graph& graph);

}  // namespace Ssctl

#endif
