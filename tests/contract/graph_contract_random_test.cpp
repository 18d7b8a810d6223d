// Compares the graphs with a model that follows the promise word for word and cares for nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/depend_graph.h"
#include "platform/include/parse_and_depend.h"

namespace {

using Names = std::set<std::string>;
using List = std::vector<std::string>;
using DependsMap = std::unordered_map<std::string, Names>;
using Edges = std::map<std::string, Names>;  ///< vertex to what it waits for

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    size_t Below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(engine_); }

private:
    std::mt19937 engine_;
};

Names DependenciesOf(const DependsMap& depends, const std::string& name) {
    const auto found = depends.find(name);
    return found == depends.end() ? Names{} : found->second;
}

/// What `name` depends on among the requested, directly or through names that were not requested.
Names RequestedBelow(const DependsMap& depends, const std::string& name, const Names& requested) {
    Names below;
    Names seen;
    List open = {name};
    while (!open.empty()) {
        const std::string at = open.back();
        open.pop_back();
        for (const std::string& dependency : DependenciesOf(depends, at)) {
            if (requested.count(dependency) != 0) {
                below.insert(dependency);
            } else if (seen.insert(dependency).second) {
                open.push_back(dependency);
            }
        }
    }
    return below;
}

Names Known(const DependsMap& depends, const List& names) {
    Names known;
    std::copy_if(names.begin(), names.end(), std::inserter(known, known.end()),
                 [&depends](const std::string& name) { return depends.count(name) != 0; });
    return known;
}

Edges ModelOfStart(const DependsMap& depends, const List& names) {
    const Names requested = Known(depends, names);
    Edges edges;
    for (const std::string& name : requested) {
        for (const std::string& dependency : edges[name] = DependenciesOf(depends, name)) {
            if (requested.count(dependency) == 0) {
                edges[dependency] = RequestedBelow(depends, dependency, requested);
            }
        }
    }
    return edges;
}

Edges ModelOfTerm(const DependsMap& depends, const List& names) {
    const Names requested = Known(depends, names);
    Edges edges;
    for (const std::string& name : requested) {
        edges[name];
        for (const std::string& below : RequestedBelow(depends, name, requested)) {
            if (below != name) {
                edges[below].insert(name);
            }
        }
    }
    return edges;
}

Names FreeOf(const Edges& edges) {
    Names free;
    for (const auto& [name, waitsFor] : edges) {
        if (waitsFor.empty()) {
            free.insert(name);
        }
    }
    return free;
}

/// Removes a vertex; returns what became free, in name order.
List PopOf(Edges& edges, const std::string& gone) {
    edges.erase(gone);
    List freed;
    for (auto& [name, waitsFor] : edges) {
        if (waitsFor.erase(gone) != 0 && waitsFor.empty()) {
            freed.push_back(name);
        }
    }
    return freed;
}

/// Pops vertices in any order, free or not, and compares after each of them.
void Compare(DependGraph graph, Edges model, Random& random) {
    while (!model.empty()) {
        ASSERT_FALSE(graph.IsEmpty());
        ASSERT_EQ(graph.GetNoDependVertices(), FreeOf(model));
        const Names free = FreeOf(model);
        const bool takeFree = !free.empty() && random.Below(4) != 0;
        const std::string gone =
            takeFree ? *std::next(free.begin(), static_cast<std::ptrdiff_t>(random.Below(free.size())))
                     : std::next(model.begin(), static_cast<std::ptrdiff_t>(random.Below(model.size())))->first;
        List freed;
        ASSERT_TRUE(graph.Pop(gone, freed));
        ASSERT_EQ(freed, PopOf(model, gone));
        ASSERT_FALSE(graph.Pop(gone));
    }
    ASSERT_TRUE(graph.IsEmpty());
    ASSERT_EQ(graph.GetNoDependVertices(), Names{});
}

std::string NameOf(size_t number) {
    return "app" + std::to_string(number);
}

/// Some names have no entry, as if they had no manifest. Without `isCyclic` a name depends on greater ones only.
DependsMap RandomDependencies(Random& random, size_t count, size_t edges, bool isCyclic) {
    DependsMap depends;
    for (size_t i = 0; i < count; ++i) {
        if (random.Below(10) != 0) {
            depends[NameOf(i)];
        }
    }
    for (size_t i = 0; i < edges; ++i) {
        const size_t from = random.Below(count);
        const size_t to = isCyclic ? random.Below(count) : from + random.Below(count - from);
        const auto entry = depends.find(NameOf(from));
        if (entry != depends.end() && (isCyclic || from != to)) {
            entry->second.insert(NameOf(to));
        }
    }
    return depends;
}

List RandomNames(Random& random, size_t count) {
    List names;
    const size_t share = 1 + random.Below(4);
    for (size_t i = 0; i < count; ++i) {
        if (random.Below(share) == 0) {
            names.push_back(NameOf(random.Below(count)));
        }
    }
    return names;
}

class RandomGraphs : public testing::TestWithParam<bool> {};

TEST_P(RandomGraphs, AgreeWithTheModel) {
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const size_t count = 1 + random.Below(24);
        const DependsMap depends = RandomDependencies(random, count, random.Below(3 * count), GetParam());
        const List names = RandomNames(random, count);
        ParseAndDepend& parser = ParseAndDepend::GetInstance();
        parser.SetApplicationDependsMap(depends);
        DependGraph graph;
        List unknown;
        const int started = parser.GetStartGraphWithErrApp(names, graph, unknown);
        ASSERT_EQ(started == 0, unknown.empty());
        ASSERT_NO_FATAL_FAILURE(Compare(graph, ModelOfStart(depends, names), random));
        const List startUnknown = unknown;
        const int terminated = parser.GetTermGraphWithErrApp(names, graph, unknown);
        ASSERT_EQ(terminated == 0, unknown.empty());
        ASSERT_EQ(unknown, startUnknown);
        ASSERT_NO_FATAL_FAILURE(Compare(graph, ModelOfTerm(depends, names), random));
    }
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutCycles, RandomGraphs, testing::Bool());

}  // namespace
