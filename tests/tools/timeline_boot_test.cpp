// The timeline of groups that real daemons started.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "tests/tools/json_schema.h"
#include "tests/tools/ssctl_runs.h"

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

class TimelineOfAGroup : public SsctlRuns {
protected:
    /// Boots, waits until the boot is told, and ends both daemons, so that the whole record is written.
    void BootAndEnd() {
        ASSERT_NO_FATAL_FAILURE(Boot());
        ASSERT_NE(manager_->WaitForLine("its base services are 2"), "");
        End();
    }

    void End() {
        owner_->Signal(SIGTERM);
        EXPECT_EQ(owner_->WaitForExit(), 0);
        manager_->Signal(SIGTERM);
        EXPECT_EQ(manager_->WaitForExit(), 0);
    }

    /// The member "timeline" of the document, which is as the schema says.
    json Timeline(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"timeline"};
        words.insert(words.end(), more.begin(), more.end());
        const json document = Document(words);
        std::ifstream file(SSCTL_SCHEMA_FILE);
        EXPECT_EQ(JsonSchema(json::parse(file)).Check(document), "");
        EXPECT_EQ(document.value("exit_code", -1), 0) << document;
        return document.value("timeline", json::object());
    }

    static std::vector<std::string> NamesOf(const json& list) {
        std::vector<std::string> names;
        for (const json& entry : list) {
            names.push_back(entry["name"]);
        }
        return names;
    }

    std::string Text(const std::string& file) const {
        std::stringstream text;
        text << std::ifstream(Folder() + "/" + file).rdbuf();
        return text.str();
    }
};

constexpr const char* kChain = R"(
- {app_name: c, bin_path: $APP, is_auto_boot: true, depends: [b]}
- {app_name: a, bin_path: $APP, is_auto_boot: true}
- {app_name: d, bin_path: $APP, is_auto_boot: true, depends: [c]}
- {app_name: b, bin_path: $APP, is_auto_boot: true, depends: [a], is_reporting: true, arguments: [--ready-after, "20"]}
)";

}  // namespace

TEST_F(TimelineOfAGroup, ThatIsAChainHasItAsItsCriticalChain) {
    Manifests("a.yaml", kChain);
    ASSERT_NO_FATAL_FAILURE(BootAndEnd());
    const json timeline = Timeline();
    EXPECT_EQ(timeline["owner"], "test_owner");
    EXPECT_THAT(NamesOf(timeline["applications"]), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(NamesOf(timeline["critical_chain"]), ElementsAre("a", "b", "c", "d"));
    int64_t sum = 0;
    for (const json& link : timeline["critical_chain"]) {
        sum += link["wait_us"].get<int64_t>() + link["to_fork_us"].get<int64_t>() + link["to_run_us"].get<int64_t>() +
               link["to_ready_us"].get<int64_t>();
    }
    EXPECT_EQ(sum, timeline["applications"][3]["up_us"]);
    EXPECT_EQ(sum, timeline["end_us"]);
    EXPECT_GE(timeline["critical_chain"][1]["to_ready_us"], 20000);
    EXPECT_EQ(timeline["missing_events"], 0);
}

TEST_F(TimelineOfAGroup, OfLayersHasEveryApplicationInItsWaveBehindThoseThatItWaitedFor) {
    std::string yaml;
    for (int layer = 0; layer < 4; ++layer) {
        for (int at = 0; at < 5; ++at) {
            const std::string before = std::to_string(layer - 1) + "x";
            yaml += "- {app_name: app" + std::to_string(layer) + "x" + std::to_string(at) +
                    ", bin_path: $APP, is_auto_boot: true" +
                    (layer == 0 ? ""
                                : ", depends: [app" + before + std::to_string(at) + ", app" + before +
                                      std::to_string((at + 1) % 5) + "]") +
                    "}\n";
        }
    }
    Manifests("a.yaml", yaml);
    ASSERT_NO_FATAL_FAILURE(BootAndEnd());
    const json timeline = Timeline();
    ASSERT_EQ(timeline["applications"].size(), 20U);
    std::map<std::string, json> rows;
    for (size_t at = 0; at < 20; ++at) {
        const json& row = timeline["applications"][at];
        const std::string name = row["name"];
        EXPECT_EQ(row["wave"], at / 5 + 1) << name;
        EXPECT_EQ(row["state"], "up") << name;
        EXPECT_EQ(row["waited_for"].is_null(), at < 5) << name;
        EXPECT_LE(row["asked_us"], row["forked_us"]);
        EXPECT_LE(row["forked_us"], row["running_us"]);
        EXPECT_LE(row["running_us"], row["up_us"]);
        for (const json& dependency : row["depends"]) {
            EXPECT_LE(rows.at(dependency)["up_us"], row["asked_us"]) << name << " waited for " << dependency;
        }
        rows[name] = row;
    }
    EXPECT_EQ(timeline["critical_chain"].size(), 4U);
    const SsctlResult run = Ssctl({"timeline"});
    EXPECT_EQ(run.exitCode, 0) << run.complaint;
    for (const auto& [name, row] : rows) {
        EXPECT_THAT(run.output, HasSubstr(" " + name + " "));
    }
    EXPECT_THAT(run.output, HasSubstr("20 of 20 applications came up within "));
}

TEST_F(TimelineOfAGroup, TellsWhoFailedAndWhoWaitsForIt) {
    Manifests("a.yaml", R"(
- {app_name: good, bin_path: $APP, is_auto_boot: true}
- {app_name: ghost, bin_path: /no/such/program, is_auto_boot: true}
- {app_name: user, bin_path: $APP, is_auto_boot: true, depends: [ghost]}
)");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("] PARTLY_UP "), "");
    ASSERT_NE(manager_->WaitForLine("its base services are 2"), "");
    End();
    const json rows = Timeline()["applications"];
    std::map<std::string, std::string> states;
    for (const json& row : rows) {
        states[row["name"]] = row["state"];
    }
    EXPECT_THAT(states, ElementsAre(Pair("ghost", "failed"), Pair("good", "up"), Pair("user", "not_asked")));
    EXPECT_EQ(rows[2]["waited_for"], "ghost");
}

TEST_F(TimelineOfAGroup, ThatRunsIsShownWithAPictureAndATrace) {
    Manifests("a.yaml", kChain);
    ASSERT_NO_FATAL_FAILURE(Boot());
    ASSERT_NE(manager_->WaitForLine("its base services are 2"), "");
    const SsctlResult run = Ssctl({"timeline", "--svg", Folder() + "/boot.svg", "--trace", Folder() + "/boot.json"});
    EXPECT_EQ(run.exitCode, 0) << run.complaint;
    EXPECT_THAT(Text("boot.svg"), HasSubstr(">Boot of test_owner: 4 of 4 applications came up within "));
    EXPECT_TRUE(json::accept(Text("boot.json")));
    EXPECT_GT(json::parse(Text("boot.json"))["traceEvents"].size(), 20U);
    End();
}

TEST_F(TimelineOfAGroup, ThatWasNeverThereIsAnError) {
    const SsctlResult run = Ssctl({"timeline"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_THAT(run.complaint,
                HasSubstr("ssctl: can't read " + Folder() + "/run/timeline: No such file or directory."));
    const json document = Document({"timeline"});
    EXPECT_EQ(document["path"], Folder() + "/run/timeline");
    EXPECT_EQ(document["error"]["kind"], "no_service");
}
