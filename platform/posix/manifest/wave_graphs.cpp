#include "platform/posix/manifest/wave_graphs.h"

#include <algorithm>

#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/strong_components.h"

namespace ProcMgr {
namespace {

/// The part of the dependencies that can be reached from the requested names, with numbers for names.
///
/// Requested names wait for each other also through names that nobody requested. Searching from each name anew would
/// cost the product of both, so names that were not requested are gathered: each group of them that depend on each
/// other (mostly a single name) becomes one relay of the graph, if a requested name can be reached from it at all.
class Reach {
public:
    Reach(const KnownApplications& known, const std::vector<std::string>& names, std::vector<std::string>& unknown) {
        TakeRequested(known, names, unknown);
        for (size_t at = 0; at < names_.size(); ++at) {
            const std::set<std::string>* dependencies = FindDependencies(known, *names_[at]);
            if (dependencies != nullptr) {
                TakeDependencies(at, *dependencies);
            }
        }
        GroupOthers();
    }

    size_t RequestedCount() const { return requestedCount_; }
    bool IsRequested(size_t number) const { return number < requestedCount_; }
    const std::string& Name(size_t number) const { return *names_[number]; }
    const std::vector<size_t>& Dependencies(size_t number) const { return dependencies_[number]; }

    /// The groups of names that were not requested; one comes after those that it depends on.
    const std::vector<std::vector<size_t>>& Groups() const { return groups_; }
    size_t GroupOf(size_t number) const { return groupOf_[number]; }

    /// True when the group depends on a requested name, directly or through other groups.
    bool IsRelay(size_t group) const { return isRelay_[group]; }

    /// No name holds a line break, so that a relay never has the name of a vertex.
    std::string RelayName(size_t group) const { return "\n" + std::to_string(group); }

private:
    size_t NumberOf(const std::string& name) {
        const auto [entry, isNew] = numbers_.emplace(name, names_.size());
        if (isNew) {
            names_.push_back(&entry->first);
            dependencies_.emplace_back();
        }
        return entry->second;
    }

    void TakeRequested(const KnownApplications& known, const std::vector<std::string>& names,
                       std::vector<std::string>& unknown) {
        std::set<std::string> refused;
        for (const std::string& name : names) {
            if (FindDependencies(known, name) != nullptr) {
                NumberOf(name);
            } else if (refused.insert(name).second) {
                unknown.push_back(name);
            }
        }
        requestedCount_ = names_.size();
    }

    void TakeDependencies(size_t at, const std::set<std::string>& names) {
        for (const std::string& name : names) {
            const size_t number = NumberOf(name);
            dependencies_[at].push_back(number);
        }
    }

    void GroupOthers() {
        Successors others(names_.size());
        for (size_t at = requestedCount_; at < names_.size(); ++at) {
            std::copy_if(dependencies_[at].begin(), dependencies_[at].end(), std::back_inserter(others[at]),
                         [this](size_t number) { return !IsRequested(number); });
        }
        groupOf_.resize(names_.size());
        for (std::vector<size_t>& group : StrongComponents(others)) {
            if (!IsRequested(group.front())) {
                AddGroup(std::move(group));
            }
        }
    }

    void AddGroup(std::vector<size_t> group) {
        for (const size_t member : group) {
            groupOf_[member] = groups_.size();
        }
        // What the group depends on is decided already, except for itself, which does not count.
        isRelay_.push_back(false);
        const bool isRelay = std::any_of(group.begin(), group.end(), [this](size_t member) {
            const std::vector<size_t>& dependencies = dependencies_[member];
            return std::any_of(dependencies.begin(), dependencies.end(),
                               [this](size_t number) { return IsRequested(number) || isRelay_[groupOf_[number]]; });
        });
        isRelay_.back() = isRelay;
        groups_.push_back(std::move(group));
    }

    std::unordered_map<std::string, size_t> numbers_;
    std::vector<const std::string*> names_;  ///< requested ones first
    std::vector<std::vector<size_t>> dependencies_;
    size_t requestedCount_ = 0;
    std::vector<std::vector<size_t>> groups_;
    std::vector<size_t> groupOf_;
    std::vector<bool> isRelay_;
};

/// Calls `add(dependency)` with the name of each requested dependency of the group and of each relay that it needs.
template <typename Add>
void ForEachWait(const Reach& reach, size_t group, Add add) {
    for (const size_t member : reach.Groups()[group]) {
        for (const size_t number : reach.Dependencies(member)) {
            if (reach.IsRequested(number)) {
                add(reach.Name(number));
            } else if (reach.GroupOf(number) != group && reach.IsRelay(reach.GroupOf(number))) {
                add(reach.RelayName(reach.GroupOf(number)));
            }
        }
    }
}

void AddRelays(const Reach& reach, DependGraph& graph) {
    for (size_t group = 0; group < reach.Groups().size(); ++group) {
        if (reach.IsRelay(group)) {
            graph.AddRelay(reach.RelayName(group));
        }
    }
}

/// A dependency that was not requested waits for what its group waits for, never for another one of its kind: one that
/// runs can be taken out at once, whatever its own dependencies do.
void AddPureDependency(const Reach& reach, size_t number, DependGraph& graph) {
    graph.AddVertex(reach.Name(number));
    if (reach.IsRelay(reach.GroupOf(number))) {
        graph.AddEdge(reach.Name(number), reach.RelayName(reach.GroupOf(number)));
    }
}

}  // namespace

const std::set<std::string>* FindDependencies(const KnownApplications& known, const std::string& name) {
    auto found = known.depends.find(name);
    if (found == known.depends.end()) {
        const std::string templateName = TemplateOf(name);
        found = known.templates.count(templateName) == 0 ? known.depends.end() : known.depends.find(templateName);
    }
    return found == known.depends.end() ? nullptr : &found->second;
}

DependGraph BuildStartGraph(const KnownApplications& known, const std::vector<std::string>& names,
                            std::vector<std::string>& unknown) {
    const Reach reach(known, names, unknown);
    DependGraph graph;
    AddRelays(reach, graph);
    for (size_t group = 0; group < reach.Groups().size(); ++group) {
        ForEachWait(reach, group, [&](const std::string& name) { graph.AddEdge(reach.RelayName(group), name); });
    }
    for (size_t at = 0; at < reach.RequestedCount(); ++at) {
        graph.AddVertex(reach.Name(at));
        for (const size_t number : reach.Dependencies(at)) {
            graph.AddEdge(reach.Name(at), reach.Name(number));
            if (!reach.IsRequested(number)) {
                AddPureDependency(reach, number, graph);
            }
        }
    }
    return graph;
}

DependGraph BuildTermGraph(const KnownApplications& known, const std::vector<std::string>& names,
                           std::vector<std::string>& unknown) {
    const Reach reach(known, names, unknown);
    DependGraph graph;
    AddRelays(reach, graph);
    for (size_t at = 0; at < reach.RequestedCount(); ++at) {
        graph.AddVertex(reach.Name(at));
        for (const size_t number : reach.Dependencies(at)) {
            if (reach.IsRequested(number)) {
                graph.AddEdge(reach.Name(number), reach.Name(at));
            } else if (reach.IsRelay(reach.GroupOf(number))) {
                graph.AddEdge(reach.RelayName(reach.GroupOf(number)), reach.Name(at));
            }
        }
    }
    for (size_t group = 0; group < reach.Groups().size(); ++group) {
        ForEachWait(reach, group, [&](const std::string& name) { graph.AddEdge(name, reach.RelayName(group)); });
    }
    return graph;
}

}  // namespace ProcMgr
