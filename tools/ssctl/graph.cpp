#include "tools/ssctl/graph.h"

#include <algorithm>
#include <array>
#include <set>
#include <unordered_map>

#include "platform/posix/common_posix/rows_in_order.h"
#include "platform/posix/manifest/manifest_cycles.h"
#include "platform/posix/manifest/manifest_files.h"
#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/manifest_rules.h"
#include "platform/posix/manifest/replacement_data.h"

namespace Ssctl {

namespace {

using Json = nlohmann::ordered_json;
using ProcMgr::ManifestEntry;

struct KindRow {
    NodeKind kind;
    const char* name;
    const char* look;  ///< attributes of the node
};

constexpr std::array<KindRow, 5> kKinds = {{
    {NodeKind::BASE, "base", "fillcolor=\"#cfe2f3\", peripheries=2"},
    {NodeKind::DRIVING, "driving", "fillcolor=\"#e6f0d8\""},
    {NodeKind::TEMPLATE, "template", "fillcolor=\"#f0f0f0\", style=\"rounded,filled,dashed\""},
    {NodeKind::INSTANCE, "instance", "fillcolor=\"#ffffff\""},
    {NodeKind::UNKNOWN, "unknown", "fillcolor=\"#ffffff\", color=red, fontcolor=red, style=\"rounded,filled,dashed\""},
}};

static_assert(ProcMgr::RowsAreInOrder(kKinds, &KindRow::kind), "a kind is the index of its row");

const KindRow& RowOf(const GraphNode& node) {
    return kKinds[static_cast<size_t>(node.kind)];
}

struct StateRow {
    const char* name;
    const char* fill;
};

constexpr std::array<StateRow, 3> kStates = {
    {{"RUNNING", "#9fdf9f"}, {"IN_TRANSITION", "#ffe08a"}, {"NOT_RUNNING", "#d0d0d0"}}};

NodeKind KindOf(const ManifestEntry& entry) {
    if (entry.attributes.isAutoBoot) {
        return NodeKind::BASE;
    }
    return entry.attributes.isDynamicPara ? NodeKind::TEMPLATE : NodeKind::DRIVING;
}

using Kinds = std::unordered_map<std::string, NodeKind>;

/// A node for a name that has no manifest of its own.
GraphNode OtherNode(const std::string& name, const Kinds& kinds) {
    GraphNode node;
    node.name = name;
    const auto made = kinds.find(ProcMgr::TemplateOf(name));
    node.kind = made != kinds.end() && made->second == NodeKind::TEMPLATE ? NodeKind::INSTANCE : NodeKind::UNKNOWN;
    if (node.kind == NodeKind::INSTANCE) {
        node.depends = {made->first};
    }
    return node;
}

bool IsAsOfGraphviz(const std::string& name) {
    return name.rfind('%', 0) == 0;
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char character : text) {
        quoted += character == '"' || character == '\\' ? "\\" : "";
        quoted += character;
    }
    return quoted + "\"";
}

/// Graphviz takes a name with '%' in front for one that it made up itself. No application has a '/' in its name.
std::string Id(const std::string& name) {
    return Quoted((IsAsOfGraphviz(name) ? "/" : "") + name);
}

/// Empty when the name will do, which is shown as it is but for what looks like an entity.
std::string Label(const std::string& name) {
    if (!IsAsOfGraphviz(name) && name.find('&') == std::string::npos) {
        return "";
    }
    std::string label;
    for (const char character : name) {
        label += character == '&' ? "&amp;" : std::string(1, character);
    }
    return ", label=" + Quoted(label);
}

std::string WriteNode(const GraphNode& node) {
    std::string text = "  " + Id(node.name) + " [" + RowOf(node).look + Label(node.name);
    const auto* const state =
        std::find_if(kStates.begin(), kStates.end(), [&](const StateRow& row) { return node.state == row.name; });
    if (state != kStates.end()) {
        // The later of two attributes of a name counts.
        text += std::string(", fillcolor=\"") + state->fill + "\"";
    }
    return text + "];\n";
}

std::string WriteEdge(const GraphNode& from, const GraphNode& to) {
    std::string look;
    if (to.kind == NodeKind::UNKNOWN) {
        look = " [color=red, style=dashed]";
    } else if (from.kind == NodeKind::INSTANCE) {
        look = " [style=dotted, arrowhead=empty]";
    } else if (from.cycle != 0 && from.cycle == to.cycle) {
        look = " [color=red, penwidth=2]";
    }
    return "  " + Id(from.name) + " -> " + Id(to.name) + look + ";\n";
}

bool HasStates(const Graph& graph) {
    return std::any_of(graph.nodes.begin(), graph.nodes.end(),
                       [](const GraphNode& node) { return !node.state.empty(); });
}

}  // namespace

Graph BuildGraph(const std::vector<ManifestEntry>& entries) {
    Graph graph;
    Kinds kinds;
    std::set<std::string> others;
    for (const ManifestEntry& entry : entries) {
        const std::set<std::string>& depends = entry.attributes.depends;
        kinds.emplace(entry.attributes.appName, KindOf(entry));
        graph.nodes.push_back(
            {entry.attributes.appName, KindOf(entry), {depends.begin(), depends.end()}, 0, std::string()});
        others.insert(depends.begin(), depends.end());
    }
    size_t number = 0;
    for (const ProcMgr::DependencyCycle& cycle : ProcMgr::FindCycles(entries)) {
        ++number;
        for (const size_t member : cycle.members) {
            graph.nodes[member].cycle = number;
        }
    }
    for (const std::string& name : others) {
        if (kinds.count(name) == 0) {
            graph.nodes.push_back(OtherNode(name, kinds));
        }
    }
    return graph;
}

Graph ReadGraph(const std::string& path) {
    std::map<std::string, std::string> matchData;
    std::vector<ProcMgr::ManifestError> errors;
    ProcMgr::LoadReplacementData(ProcMgr::FindReplacementData(path), "cfgmgr_env", matchData, errors);
    ProcMgr::ManifestFiles files = ProcMgr::ReadManifestFiles(path, matchData, ProcMgr::kMebibytesOfProcessManager);
    std::vector<ProcMgr::ManifestError> leftOut;
    ProcMgr::KeepFirstOfName(files.entries, leftOut);
    Graph graph = BuildGraph(files.entries);
    graph.errors = errors.size() + files.errors.size() + leftOut.size();
    return graph;
}

void AddStates(const Json& stateMembers, Graph& graph) {
    std::unordered_map<std::string, std::string> states;
    for (const Json& application : stateMembers.at("applications")) {
        states.emplace(application.at("name").get<std::string>(), application.at("state").get<std::string>());
    }
    for (GraphNode& node : graph.nodes) {
        const auto found = states.find(node.name);
        node.state = found == states.end() ? "" : found->second;
    }
}

std::string WriteDot(const Graph& graph) {
    std::string legend = "double border: started at boot; dashed: template; red: cannot start";
    if (HasStates(graph)) {
        legend += "\\ngreen: runs; yellow: in transition; grey: does not run";
    }
    std::string text =
        "digraph applications {\n"
        "  rankdir=RL;\n"
        "  label=\"" +
        legend +
        "\";\n"
        "  fontname=\"sans-serif\";\n"
        "  node [shape=box, style=\"rounded,filled\", fontname=\"sans-serif\"];\n";
    std::unordered_map<std::string, const GraphNode*> byName;
    for (const GraphNode& node : graph.nodes) {
        byName.emplace(node.name, &node);
        text += WriteNode(node);
    }
    for (const GraphNode& node : graph.nodes) {
        for (const std::string& dependency : node.depends) {
            text += WriteEdge(node, *byName.at(dependency));
        }
    }
    return text + "}\n";
}

Outcome ReportGraph(const std::string& path, const Graph& graph) {
    Outcome outcome;
    outcome.text = WriteDot(graph);
    outcome.members["applications"] = Json::array();
    for (const GraphNode& node : graph.nodes) {
        outcome.members["applications"].push_back({{"name", node.name},
                                                   {"type", RowOf(node).name},
                                                   {"depends", node.depends},
                                                   {"in_cycle", node.cycle != 0},
                                                   {"state", node.state.empty() ? Json() : Json(node.state)}});
    }
    if (graph.errors != 0) {
        outcome.fault = Fault::BAD_MANIFESTS;
        outcome.problem = "there are errors in the manifests, so that the graph may lack something";
        outcome.advice = "See them with 'ssctl check " + path + "'.";
    }
    return outcome;
}

}  // namespace Ssctl
