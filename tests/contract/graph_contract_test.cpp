#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/depend_graph.h"
#include "platform/include/parse_and_depend.h"
#include "tests/contract/known_manifests.h"

namespace {

using Names = std::set<std::string>;
using List = std::vector<std::string>;
using DependsMap = std::unordered_map<std::string, Names>;
using Waves = std::vector<Names>;

ApplicationManifest Application(const std::string& name, const Names& depends = {}, bool isTemplate = false) {
    ApplicationAttributes attributes;
    attributes.appName = name;
    attributes.depends = depends;
    attributes.isDynamicPara = isTemplate;
    return ApplicationManifest(attributes);
}

ApplicationManifest Template(const std::string& name, const Names& depends = {}) {
    return Application(name, depends, true);
}

ParseAndDepend& Parser() {
    return ParseAndDepend::GetInstance();
}

int Know(const std::vector<ApplicationManifest>& manifests, bool withBadOne = false) {
    std::vector<ApplicationManifest> out;
    return ParseManifests(manifests, withBadOne, out);
}

/// The whole order that a graph stands for: what is free, then what is free after all of that is popped, and so on.
Waves WavesOf(DependGraph graph) {
    Waves waves;
    for (Names free = graph.GetNoDependVertices(); !free.empty(); free = graph.GetNoDependVertices()) {
        for (const std::string& name : free) {
            EXPECT_TRUE(graph.Pop(name));
        }
        waves.push_back(free);
    }
    return waves;
}

DependGraph StartGraph(const List& names, const List& expectedUnknown = {}) {
    DependGraph graph;
    List unknown;
    EXPECT_EQ(Parser().GetStartGraphWithErrApp(names, graph, unknown) == 0, expectedUnknown.empty());
    EXPECT_EQ(unknown, expectedUnknown);
    return graph;
}

DependGraph TermGraph(const List& names, const List& expectedUnknown = {}) {
    DependGraph graph;
    List unknown;
    EXPECT_EQ(Parser().GetTermGraphWithErrApp(names, graph, unknown) == 0, expectedUnknown.empty());
    EXPECT_EQ(unknown, expectedUnknown);
    return graph;
}

// The graph itself.

TEST(DependGraph, IsEmptyAtFirst) {
    const DependGraph graph;
    EXPECT_TRUE(graph.IsEmpty());
    EXPECT_EQ(graph.GetNoDependVertices(), Names{});
}

TEST(DependGraph, KeepsAVertexAsItIsWhenItIsAddedAgain) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    graph.AddVertex("a");
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"b"});
}

TEST(DependGraph, MakesBothEndsOfAnEdgeVertices) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    EXPECT_EQ(WavesOf(graph), (Waves{{"b"}, {"a"}}));
}

TEST(DependGraph, FreesAVertexWhenTheLastEdgeLeavesIt) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    graph.AddEdge("a", "c");
    EXPECT_TRUE(graph.Pop("b"));
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"c"});
    EXPECT_TRUE(graph.Pop("c"));
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"a"});
}

TEST(DependGraph, TellsWhetherAPoppedVertexWasThere) {
    DependGraph graph;
    graph.AddVertex("a");
    EXPECT_FALSE(graph.Pop("b"));
    EXPECT_TRUE(graph.Pop("a"));
    EXPECT_FALSE(graph.Pop("a"));
    EXPECT_TRUE(graph.IsEmpty());
}

TEST(DependGraph, RemovesAVertexThatStillWaits) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    EXPECT_TRUE(graph.Pop("a"));
    EXPECT_TRUE(graph.Pop("b"));
    EXPECT_TRUE(graph.IsEmpty());
}

TEST(DependGraph, AppendsWhatAPopFreesInNameOrder) {
    DependGraph graph;
    for (const char* name : {"c", "b", "d"}) {
        graph.AddEdge(name, "a");
    }
    graph.AddEdge("d", "e");
    List freed = {"before"};
    EXPECT_TRUE(graph.Pop("a", freed));
    EXPECT_EQ(freed, (List{"before", "b", "c"}));
    EXPECT_FALSE(graph.Pop("a", freed));
    EXPECT_EQ(freed, (List{"before", "b", "c"}));
}

TEST(DependGraph, NeverFreesTheVerticesOfACycle) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    graph.AddEdge("b", "a");
    graph.AddEdge("c", "c");
    graph.AddEdge("d", "a");
    EXPECT_EQ(graph.GetNoDependVertices(), Names{});
    EXPECT_FALSE(graph.IsEmpty());
}

TEST(DependGraph, OpensACycleWhenOneOfItsVerticesIsPopped) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    graph.AddEdge("b", "a");
    graph.AddEdge("c", "c");
    EXPECT_TRUE(graph.Pop("a"));
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"b"});
    EXPECT_TRUE(graph.Pop("c"));
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"b"});
}

TEST(DependGraph, IsCopiedByValue) {
    DependGraph graph;
    graph.AddEdge("a", "b");
    DependGraph copy = graph;
    EXPECT_TRUE(copy.Pop("b"));
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"b"});
    EXPECT_EQ(copy.GetNoDependVertices(), Names{"a"});
}

// What the parser knows.

TEST(ParseYaml, ReturnsTheManifestsAndReplacesWhatStoodInTheOutput) {
    std::vector<ApplicationManifest> out = {Application("old")};
    EXPECT_EQ(ParseManifests({Application("b"), Application("a", {"b"})}, false, out), 0);
    ASSERT_EQ(out.size(), 2U);
    EXPECT_EQ(out[0].GetAppName(), "b");
    EXPECT_EQ(out[1].GetAppName(), "a");
    EXPECT_EQ(out[1].GetDependList(), Names{"b"});
}

TEST(ParseYaml, MakesEveryManifestAKeyOfTheDependencyMapTemplatesToo) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b"), Template("t"), Template("u", {"a"})}), 0);
    EXPECT_EQ(Parser().GetApplicationDependsMap(), (DependsMap{{"a", {"b"}}, {"b", {}}, {"t", {}}, {"u", {"a"}}}));
}

TEST(ParseYaml, ReplacesWhatWasKnownWhenAllAreGood) {
    EXPECT_EQ(Know({Application("a"), Template("t")}), 0);
    EXPECT_EQ(Know({Application("b"), Application("t")}), 0);
    EXPECT_EQ(Parser().GetApplicationDependsMap(), (DependsMap{{"b", {}}, {"t", {}}}));
    EXPECT_FALSE(Parser().IsDynamicPara("t"));
}

TEST(ParseYaml, ReturnsTheGoodManifestsOfAFailureAndKeepsWhatWasKnown) {
    EXPECT_EQ(Know({Application("a"), Application("b"), Template("t")}), 0);
    std::vector<ApplicationManifest> out;
    EXPECT_NE(ParseManifests({Application("b", {"a"}), Template("u")}, true, out), 0);
    ASSERT_EQ(out.size(), 2U);
    EXPECT_EQ(out[0].GetAppName(), "b");
    EXPECT_EQ(out[1].GetAppName(), "u");
    EXPECT_EQ(Parser().GetApplicationDependsMap(), (DependsMap{{"a", {}}, {"b", {"a"}}, {"t", {}}, {"u", {}}}));
    EXPECT_TRUE(Parser().IsDynamicPara("t"));
    EXPECT_TRUE(Parser().IsDynamicPara("u"));
}

TEST(ApplicationDependsMap, IsReplacedAsAWhole) {
    EXPECT_EQ(Know({Application("a", {"b"}), Template("t")}), 0);
    Parser().SetApplicationDependsMap({{"c", {"d"}}});
    EXPECT_EQ(Parser().GetApplicationDependsMap(), (DependsMap{{"c", {"d"}}}));
    EXPECT_EQ(WavesOf(StartGraph({"c"})), (Waves{{"d"}, {"c"}}));
    StartGraph({"a"}, {"a"});
}

TEST(ApplicationDependsMap, IsReturnedAsACopy) {
    EXPECT_EQ(Know({Application("a")}), 0);
    DependsMap copy = Parser().GetApplicationDependsMap();
    copy["b"] = {"c"};
    EXPECT_EQ(Parser().GetApplicationDependsMap(), (DependsMap{{"a", {}}}));
}

TEST(ApplicationDependsMap, CanBeTakenAwayAndPutBackWithItsInstances) {
    EXPECT_EQ(Know({Application("a"), Template("t", {"a"})}), 0);
    const DependsMap saved = Parser().GetApplicationDependsMap();
    Parser().SetApplicationDependsMap({});
    StartGraph({"t@1"}, {"t@1"});
    Parser().SetApplicationDependsMap(saved);
    EXPECT_EQ(WavesOf(StartGraph({"t@1"})), (Waves{{"a"}, {"t@1"}}));
}

TEST(IsDynamicPara, IsTrueForTemplatesOnly) {
    EXPECT_EQ(Know({Application("a"), Template("t")}), 0);
    EXPECT_TRUE(Parser().IsDynamicPara("t"));
    EXPECT_FALSE(Parser().IsDynamicPara("a"));
    EXPECT_FALSE(Parser().IsDynamicPara("t@1"));
    EXPECT_FALSE(Parser().IsDynamicPara(""));
}

TEST(IsDynamicParaMatch, IsTrueForInstancesOfThatTemplate) {
    EXPECT_EQ(Know({Application("a"), Template("t"), Template("tt")}), 0);
    EXPECT_TRUE(Parser().IsDynamicParaMatch("t", "t@front"));
    EXPECT_TRUE(Parser().IsDynamicParaMatch("t", "t@a@b"));
    EXPECT_FALSE(Parser().IsDynamicParaMatch("t", "tt@front"));
    EXPECT_FALSE(Parser().IsDynamicParaMatch("tt", "t@front"));
    EXPECT_FALSE(Parser().IsDynamicParaMatch("a", "a@front"));
    EXPECT_FALSE(Parser().IsDynamicParaMatch("", "@front"));
}

TEST(IsDynamicParaMatch, IsFalseForTheTemplateItself) {
    EXPECT_EQ(Know({Template("t")}), 0);
    EXPECT_FALSE(Parser().IsDynamicParaMatch("t", "t"));
    EXPECT_FALSE(Parser().IsDynamicParaMatch("t", "t@"));
}

// The order of a start.

TEST(StartGraph, HoldsTheNamesAndTheirDirectDependencies) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b", {"c"}), Application("c")}), 0);
    EXPECT_EQ(WavesOf(StartGraph({"a"})), (Waves{{"b"}, {"a"}}));
}

TEST(StartGraph, LetsARequestedNameWaitForEachDependency) {
    EXPECT_EQ(Know({Application("a", {"b", "c"}), Application("b"), Application("c", {"d"}), Application("d")}), 0);
    EXPECT_EQ(WavesOf(StartGraph({"a", "b", "c", "d"})), (Waves{{"b", "d"}, {"c"}, {"a"}}));
}

TEST(StartGraph, FreesADependencyThatNobodyRequestedWhateverItsOwnDependenciesDo) {
    EXPECT_EQ(
        Know({Application("a", {"b", "c"}), Application("b", {"c", "d"}), Application("c", {"d"}), Application("d")}),
        0);
    EXPECT_EQ(WavesOf(StartGraph({"a"})), (Waves{{"b", "c"}, {"a"}}));
}

TEST(StartGraph, LetsADependencyThatNobodyRequestedWaitForRequestedOnesBelowIt) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b", {"c"}), Application("c")}), 0);
    EXPECT_EQ(WavesOf(StartGraph({"a", "c"})), (Waves{{"c"}, {"b"}, {"a"}}));
}

TEST(StartGraph, FindsRequestedOnesThroughLongChainsOfOthers) {
    Parser().SetApplicationDependsMap({{"a", {"b"}}, {"b", {"x"}}, {"x", {"y"}}, {"y", {"x", "z"}}, {"z", {}}});
    EXPECT_EQ(WavesOf(StartGraph({"z", "a"})), (Waves{{"z"}, {"b"}, {"a"}}));
}

TEST(StartGraph, FreesOneThatNobodyRequestedWhenTheRequestedOnesBelowItAreDoneAndNoSooner) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b", {"c", "d"}), Application("c"), Application("d")}), 0);
    DependGraph graph = StartGraph({"a", "c", "d"});
    EXPECT_EQ(graph.GetNoDependVertices(), (Names{"c", "d"}));
    EXPECT_TRUE(graph.Pop("c"));
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"d"});
    List freed;
    EXPECT_TRUE(graph.Pop("d", freed));
    EXPECT_EQ(freed, List{"b"});
}

TEST(StartGraph, HoldsADependencyWithoutAManifest) {
    EXPECT_EQ(Know({Application("a", {"ghost"})}), 0);
    DependGraph graph = StartGraph({"a"});
    EXPECT_EQ(graph.GetNoDependVertices(), Names{"ghost"});
}

TEST(StartGraph, GivesAnInstanceTheDependenciesOfItsTemplate) {
    EXPECT_EQ(Know({Application("a"), Template("t", {"a"})}), 0);
    EXPECT_EQ(WavesOf(StartGraph({"t@1", "t@2", "a"})), (Waves{{"a"}, {"t@1", "t@2"}}));
}

TEST(StartGraph, FollowsInstancesThatNobodyRequested) {
    EXPECT_EQ(Know({Application("a", {"t@1"}), Template("t", {"b"}), Application("b")}), 0);
    EXPECT_EQ(WavesOf(StartGraph({"a", "b"})), (Waves{{"b"}, {"t@1"}, {"a"}}));
}

TEST(StartGraph, ReturnsTheNamesThatNoManifestDescribesAndAUsableGraphOfTheOthers) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b"), Template("t")}), 0);
    const DependGraph graph = StartGraph({"z", "a", "t@", "z", "b@1"}, {"z", "t@", "b@1"});
    EXPECT_EQ(WavesOf(graph), (Waves{{"b"}, {"a"}}));
}

TEST(StartGraph, ReplacesBothOutputs) {
    EXPECT_EQ(Know({Application("a")}), 0);
    DependGraph graph;
    graph.AddVertex("old");
    List unknown = {"old"};
    EXPECT_EQ(Parser().GetStartGraphWithErrApp({"a"}, graph, unknown), 0);
    EXPECT_EQ(WavesOf(graph), (Waves{{"a"}}));
    EXPECT_EQ(unknown, List{});
}

TEST(StartGraph, CollapsesDuplicateNames) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b")}), 0);
    EXPECT_EQ(WavesOf(StartGraph({"a", "b", "a"})), (Waves{{"b"}, {"a"}}));
}

TEST(StartGraph, NeverFreesTheNamesOfACycle) {
    Parser().SetApplicationDependsMap({{"a", {"b"}}, {"b", {"a"}}, {"c", {"c"}}, {"d", {}}});
    EXPECT_EQ(WavesOf(StartGraph({"a", "b", "c", "d"})), (Waves{{"d"}}));
    EXPECT_FALSE(StartGraph({"a", "b"}).IsEmpty());
}

TEST(StartGraph, IsFreeOfCyclesAmongNamesThatNobodyRequested) {
    Parser().SetApplicationDependsMap({{"a", {"x"}}, {"x", {"y"}}, {"y", {"x"}}});
    EXPECT_EQ(WavesOf(StartGraph({"a"})), (Waves{{"x"}, {"a"}}));
}

TEST(StartGraph, OfNoNamesIsEmpty) {
    EXPECT_EQ(Know({Application("a")}), 0);
    EXPECT_TRUE(StartGraph({}).IsEmpty());
}

// The order of a termination.

TEST(TermGraph, HoldsExactlyTheNames) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b", {"c"}), Application("c")}), 0);
    EXPECT_EQ(WavesOf(TermGraph({"b"})), (Waves{{"b"}}));
}

TEST(TermGraph, LeavesTheOtherAloneWhenOneOfTwoIsTerminated) {
    EXPECT_EQ(Know({Application("a"), Application("b", {"a"})}), 0);
    EXPECT_EQ(WavesOf(TermGraph({"a"})), (Waves{{"a"}}));
}

TEST(TermGraph, LetsOneWaitForAllThatDependOnIt) {
    EXPECT_EQ(Know({Application("a", {"c"}), Application("b", {"c"}), Application("c", {"d"}), Application("d")}), 0);
    EXPECT_EQ(WavesOf(TermGraph({"a", "b", "c", "d"})), (Waves{{"a", "b"}, {"c"}, {"d"}}));
}

TEST(TermGraph, LetsOneWaitThroughNamesThatAreNotToBeTerminated) {
    EXPECT_EQ(Know({Application("a", {"x"}), Application("x", {"y"}), Application("y", {"b"}), Application("b")}), 0);
    EXPECT_EQ(WavesOf(TermGraph({"b", "a"})), (Waves{{"a"}, {"b"}}));
}

TEST(TermGraph, LetsInstancesGoBeforeTheDependenciesOfTheirTemplate) {
    EXPECT_EQ(Know({Application("a"), Template("t", {"a"})}), 0);
    EXPECT_EQ(WavesOf(TermGraph({"a", "t@1", "t@2"})), (Waves{{"t@1", "t@2"}, {"a"}}));
}

TEST(TermGraph, ReturnsTheNamesThatNoManifestDescribesAndAUsableGraphOfTheOthers) {
    EXPECT_EQ(Know({Application("a", {"b"}), Application("b")}), 0);
    const DependGraph graph = TermGraph({"z", "a", "y", "b", "z"}, {"z", "y"});
    EXPECT_EQ(WavesOf(graph), (Waves{{"a"}, {"b"}}));
}

TEST(TermGraph, DoesNotHoldADependencyWithoutAManifest) {
    EXPECT_EQ(Know({Application("a", {"ghost"})}), 0);
    EXPECT_EQ(WavesOf(TermGraph({"a", "ghost"}, {"ghost"})), (Waves{{"a"}}));
}

TEST(TermGraph, ReplacesBothOutputs) {
    EXPECT_EQ(Know({Application("a")}), 0);
    DependGraph graph;
    graph.AddVertex("old");
    List unknown = {"old"};
    EXPECT_EQ(Parser().GetTermGraphWithErrApp({"a", "a"}, graph, unknown), 0);
    EXPECT_EQ(WavesOf(graph), (Waves{{"a"}}));
    EXPECT_EQ(unknown, List{});
}

TEST(TermGraph, NeverFreesTheNamesOfACycle) {
    Parser().SetApplicationDependsMap({{"a", {"x"}}, {"x", {"b"}}, {"b", {"a"}}, {"c", {}}});
    EXPECT_EQ(WavesOf(TermGraph({"a", "b", "c"})), (Waves{{"c"}}));
}

TEST(TermGraph, LetsOneThatDependsOnItselfWaitForOthersOnly) {
    Parser().SetApplicationDependsMap({{"a", {"x"}}, {"x", {"a"}}, {"b", {"x"}}, {"c", {"c"}}});
    EXPECT_EQ(WavesOf(TermGraph({"a", "b", "c"})), (Waves{{"b", "c"}, {"a"}}));
}

}  // namespace
