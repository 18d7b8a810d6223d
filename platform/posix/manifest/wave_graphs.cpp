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

    size_t Count() const { return names_.size(); }
    size_t RequestedCount() const { return requestedCount_; }
    bool IsRequested(size_t number) const { return number < requestedCount_; }
    const std::string& Name(size_t number) const { return *names_[number]; }
    const std::vector<size_t>& Dependencies(size_t number) const { return dependencies_[number]; }

    const Successors& AllDependencies() const { return dependencies_; }

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
    Successors dependencies_;
    size_t requestedCount_ = 0;
    std::vector<std::vector<size_t>> groups_;
    std::vector<size_t> groupOf_;
    std::vector<bool> isRelay_;
};

/// Calls `onRequested(number)` for each requested dependency of the group and `onRelay(group)` for each relay that it
/// depends on.
template <typename OnRequested, typename OnRelay>
void ForEachDependency(const Reach& reach, size_t group, OnRequested onRequested, OnRelay onRelay) {
    for (const size_t member : reach.Groups()[group]) {
        for (const size_t number : reach.Dependencies(member)) {
            if (reach.IsRequested(number)) {
                onRequested(number);
            } else if (reach.GroupOf(number) != group && reach.IsRelay(reach.GroupOf(number))) {
                onRelay(reach.GroupOf(number));
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

/// Which requested names depend on themselves in some way.
std::vector<bool> FindCyclic(const Reach& reach) {
    std::vector<bool> isCyclic(reach.Count(), false);
    for (const std::vector<size_t>& component : StrongComponents(reach.AllDependencies())) {
        for (const size_t member : component) {
            const std::vector<size_t>& dependencies = reach.Dependencies(member);
            const bool isOwn = std::find(dependencies.begin(), dependencies.end(), member) != dependencies.end();
            isCyclic[member] = component.size() > 1 || isOwn;
        }
    }
    return isCyclic;
}

/// The other requested names that depend on `number`, directly or through names that were not requested.
std::set<size_t> RequestedAbove(const Reach& reach, const Successors& dependants, size_t number) {
    std::set<size_t> above;
    std::vector<bool> isSeen(reach.Count(), false);
    std::vector<size_t> open = {number};
    while (!open.empty()) {
        const size_t at = open.back();
        open.pop_back();
        for (const size_t dependant : dependants[at]) {
            if (isSeen[dependant] || dependant == number) {
                continue;
            }
            isSeen[dependant] = true;
            if (reach.IsRequested(dependant)) {
                above.insert(dependant);
            } else {
                open.push_back(dependant);
            }
        }
    }
    return above;
}

/// A name that depends on itself waits for others only, which a relay cannot tell apart. Manifests with cycles are
/// refused, so that hardly anybody comes here, and a search for each name will do.
void AddCyclicWaits(const Reach& reach, const std::vector<bool>& isCyclic, DependGraph& graph) {
    if (std::find(isCyclic.begin(), isCyclic.end(), true) == isCyclic.end()) {
        return;
    }
    Successors dependants(reach.Count());
    for (size_t at = 0; at < reach.Count(); ++at) {
        for (const size_t number : reach.Dependencies(at)) {
            dependants[number].push_back(at);
        }
    }
    for (size_t at = 0; at < reach.RequestedCount(); ++at) {
        if (!isCyclic[at]) {
            continue;
        }
        for (const size_t above : RequestedAbove(reach, dependants, at)) {
            graph.AddEdge(reach.Name(at), reach.Name(above));
        }
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
        const std::string relay = reach.RelayName(group);
        ForEachDependency(
            reach, group, [&](size_t number) { graph.AddEdge(relay, reach.Name(number)); },
            [&](size_t other) { graph.AddEdge(relay, reach.RelayName(other)); });
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
    const std::vector<bool> isCyclic = FindCyclic(reach);
    DependGraph graph;
    AddRelays(reach, graph);
    for (size_t at = 0; at < reach.RequestedCount(); ++at) {
        graph.AddVertex(reach.Name(at));
        for (const size_t number : reach.Dependencies(at)) {
            if (reach.IsRequested(number) && !isCyclic[number]) {
                graph.AddEdge(reach.Name(number), reach.Name(at));
            } else if (!reach.IsRequested(number) && reach.IsRelay(reach.GroupOf(number))) {
                graph.AddEdge(reach.RelayName(reach.GroupOf(number)), reach.Name(at));
            }
        }
    }
    for (size_t group = 0; group < reach.Groups().size(); ++group) {
        const std::string relay = reach.RelayName(group);
        const auto letWait = [&](size_t number) {
            if (!isCyclic[number]) {
                graph.AddEdge(reach.Name(number), relay);
            }
        };
        ForEachDependency(reach, group, letWait, [&](size_t other) { graph.AddEdge(reach.RelayName(other), relay); });
    }
    AddCyclicWaits(reach, isCyclic, graph);
    return graph;
}

}  // namespace ProcMgr
