// Every operation of the parser at once: reload, look-ups, both graphs and dump run on different threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/parse_and_depend.h"
#include "tests/platform/manifest_test_folder.h"

namespace {

using Names = std::set<std::string>;
using List = std::vector<std::string>;
using DependsMap = std::unordered_map<std::string, Names>;

constexpr int kRounds = 200;

const DependsMap kDepends = {{"a", {"b"}}, {"b", {}}, {"t", {"a"}}};

/// Runs all of them at once, each as often.
void RunTogether(const std::vector<std::function<void()>>& tasks) {
    std::atomic<size_t> ready{0};
    std::vector<std::thread> threads;
    for (const std::function<void()>& task : tasks) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < tasks.size()) {
                std::this_thread::yield();
            }
            for (int round = 0; round < kRounds; ++round) {
                task();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ParseAndDependConcurrency, AllowsEveryOperationAtOnce) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml",
                 "- {app_name: a, bin_path: /a, depends: [b]}\n- {app_name: b, bin_path: /b}\n"
                 "- {app_name: t, bin_path: /t, depends: [a], is_dynamic_para: true}\n");
    ParseAndDepend& parser = ParseAndDepend::GetInstance();
    const auto parse = [&] {
        std::vector<ApplicationManifest> out;
        EXPECT_EQ(parser.ParseYaml(ParamType::MANIFEST, folder.Path(), out, {}), 0);
        EXPECT_EQ(out.size(), 3U);
    };
    parse();
    const auto start = [&] {
        DependGraph graph;
        List unknown;
        EXPECT_EQ(parser.GetStartGraphWithErrApp({"a", "b", "t@1"}, graph, unknown), 0);
        EXPECT_EQ(graph.GetNoDependVertices(), Names{"b"});
    };
    const auto terminate = [&] {
        DependGraph graph;
        List unknown;
        EXPECT_EQ(parser.GetTermGraphWithErrApp({"a", "b", "t@1"}, graph, unknown), 0);
        EXPECT_EQ(graph.GetNoDependVertices(), Names{"t@1"});
    };
    const auto lookUp = [&] {
        EXPECT_TRUE(parser.IsDynamicPara("t"));
        EXPECT_TRUE(parser.IsDynamicParaMatch("t", "t@x"));
        EXPECT_EQ(parser.GetApplicationDependsMap(), kDepends);
    };
    const auto replace = [&] { parser.SetApplicationDependsMap(kDepends); };
    const auto readData = [&] {
        std::map<std::string, std::string> data;
        EXPECT_EQ(parser.ParseToReplaceData(ParamType::REPLACE_DATA, "cfgmgr_env", data), 0);
    };
    RunTogether({parse, parse, start, terminate, lookUp, replace, readData});
}

}  // namespace
