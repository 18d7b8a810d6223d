// What the POSIX graphs promise beyond the common contract: relays, and sizes that only linear work can bear.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "platform/include/depend_graph.h"
#include "platform/posix/manifest/strong_components.h"
#include "platform/posix/manifest/wave_graphs.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Names = std::set<std::string>;
using List = std::vector<std::string>;

TEST(DependGraphRelay, IsNotSeen) {
    DependGraph graph;
    graph.AddRelay("relay");
    EXPECT_TRUE(graph.IsEmpty());
    EXPECT_EQ(graph.GetNoDependVertices(), Names{});
    EXPECT_FALSE(graph.Pop("relay"));
}

TEST(DependGraphRelay, LetsManyWaitForManyAndGoesByItself) {
    DependGraph graph;
    graph.AddRelay("relay");
    for (const char* name : {"a", "b"}) {
        graph.AddEdge("relay", name);
    }
    for (const char* name : {"y", "x"}) {
        graph.AddEdge(name, "relay");
    }
    EXPECT_EQ(graph.GetNoDependVertices(), (Names{"a", "b"}));
    List freed;
    EXPECT_TRUE(graph.Pop("a", freed));
    EXPECT_THAT(freed, IsEmpty());
    EXPECT_TRUE(graph.Pop("b", freed));
    EXPECT_THAT(freed, ElementsAre("x", "y"));
    EXPECT_TRUE(graph.Pop("x"));
    EXPECT_TRUE(graph.Pop("y"));
    EXPECT_TRUE(graph.IsEmpty());
}

TEST(DependGraphRelay, GoesThroughOtherRelays) {
    DependGraph graph;
    graph.AddRelay("r1");
    graph.AddRelay("r2");
    graph.AddEdge("r1", "a");
    graph.AddEdge("r2", "r1");
    graph.AddEdge("z", "r2");
    List freed;
    EXPECT_TRUE(graph.Pop("a", freed));
    EXPECT_THAT(freed, ElementsAre("z"));
}

TEST(DependGraphRelay, StaysWithoutHarmWhenTheOneThatWaitedIsGone) {
    DependGraph graph;
    graph.AddRelay("r");
    graph.AddEdge("r", "a");
    graph.AddEdge("z", "r");
    EXPECT_TRUE(graph.Pop("z"));
    EXPECT_FALSE(graph.IsEmpty());
    EXPECT_TRUE(graph.Pop("a"));
    EXPECT_TRUE(graph.IsEmpty());
}

TEST(DependGraphRelay, DoesNotReplaceAVertex) {
    DependGraph graph;
    graph.AddVertex("a");
    graph.AddRelay("a");
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"a"});
}

TEST(StrongComponents, ComeAfterWhatTheyReach) {
    const auto components = ProcMgr::StrongComponents({{1}, {2}, {1, 3}, {}, {0, 4}});
    ASSERT_EQ(components.size(), 4U);
    EXPECT_THAT(components[0], ElementsAre(3U));
    EXPECT_THAT(components[1], UnorderedElementsAre(1U, 2U));
    EXPECT_THAT(components[2], ElementsAre(0U));
    EXPECT_THAT(components[3], ElementsAre(4U));
    EXPECT_THAT(ProcMgr::StrongComponents({}), IsEmpty());
}

std::string Name(const char* kind, size_t number) {
    return kind + std::to_string(number);
}

/// Pops wave after wave by following what each pop frees; returns how many vertices that were.
size_t FollowWaves(DependGraph graph) {
    const Names first = graph.GetNoDependVertices();
    List open(first.begin(), first.end());
    size_t popped = 0;
    while (popped < open.size()) {
        const std::string name = open[popped++];
        EXPECT_TRUE(graph.Pop(name, open));
    }
    EXPECT_TRUE(graph.IsEmpty());
    return popped;
}

constexpr size_t kMany = 50000;

TEST(LargeGraph, OfAChainCanBeStartedAndTerminated) {
    ProcMgr::DependsMap depends;
    List names;
    for (size_t i = 0; i < kMany; ++i) {
        names.push_back(Name("a", i));
        depends[names.back()] = i == 0 ? Names{} : Names{Name("a", i - 1)};
    }
    List unknown;
    EXPECT_EQ(FollowWaves(ProcMgr::BuildStartGraph({depends, {}}, names, unknown)), kMany);
    EXPECT_EQ(FollowWaves(ProcMgr::BuildTermGraph({depends, {}}, names, unknown)), kMany);
    EXPECT_THAT(unknown, IsEmpty());
}

TEST(LargeGraph, OfOneWideWaveCanBeStartedAndTerminated) {
    ProcMgr::DependsMap depends = {{"base", {}}};
    List names = {"base"};
    for (size_t i = 0; i < kMany; ++i) {
        names.push_back(Name("a", i));
        depends[names.back()] = {"base"};
    }
    List unknown;
    EXPECT_EQ(FollowWaves(ProcMgr::BuildStartGraph({depends, {}}, names, unknown)), kMany + 1);
    EXPECT_EQ(FollowWaves(ProcMgr::BuildTermGraph({depends, {}}, names, unknown)), kMany + 1);
}

/// 25,000 requested names above a hub that nobody requested, and as many below it: a search from each name, or an edge
/// for each pair, would be 625 million steps.
TEST(LargeGraph, ThroughAHubThatNobodyRequestedCanBeStartedAndTerminated) {
    ProcMgr::DependsMap depends = {{"hub", {}}};
    List names;
    for (size_t i = 0; i < kMany / 2; ++i) {
        names.push_back(Name("above", i));
        names.push_back(Name("below", i));
        depends[Name("above", i)] = {Name("own", i)};
        depends[Name("own", i)] = {"hub"};
        depends["hub"].insert(Name("below", i));
        depends[Name("below", i)] = {};
    }
    List unknown;
    EXPECT_EQ(FollowWaves(ProcMgr::BuildStartGraph({depends, {}}, names, unknown)), kMany + kMany / 2);
    EXPECT_EQ(FollowWaves(ProcMgr::BuildTermGraph({depends, {}}, names, unknown)), kMany);
}

TEST(LargeGraph, AboveALongChainThatNobodyRequestedCanBeStartedAndTerminated) {
    ProcMgr::DependsMap depends = {{"end", {}}};
    List names = {"end"};
    for (size_t i = 0; i < kMany / 2; ++i) {
        names.push_back(Name("top", i));
        depends[Name("top", i)] = {Name("own", i)};
        depends[Name("own", i)] = {Name("chain", 0)};
        depends[Name("chain", i)] = {i + 1 < kMany / 2 ? Name("chain", i + 1) : "end"};
    }
    List unknown;
    EXPECT_EQ(FollowWaves(ProcMgr::BuildStartGraph({depends, {}}, names, unknown)), kMany + 1);
    EXPECT_EQ(FollowWaves(ProcMgr::BuildTermGraph({depends, {}}, names, unknown)), kMany / 2 + 1);
}

TEST(LargeGraph, OfOneNameTouchesItsOwnPartOnly) {
    ProcMgr::DependsMap depends;
    for (size_t i = 0; i < kMany; ++i) {
        depends[Name("a", i)] = {Name("b", i)};
    }
    List unknown;
    for (size_t i = 0; i < 2000; ++i) {
        DependGraph graph = ProcMgr::BuildStartGraph({depends, {}}, {Name("a", i)}, unknown);
        EXPECT_EQ(graph.GetNoDependVertices(), Names{Name("b", i)});
    }
}

}  // namespace
