// The picture of the dependencies, coloured by what a real group does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/integration/served_group.h"

using testing::HasSubstr;
using testing::Not;

class GraphStates : public ServedGroup {
protected:
    SsctlResult Graph(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"graph", Folder() + "/manifests"};
        words.insert(words.end(), more.begin(), more.end());
        return Ssctl(words);
    }
};

TEST_F(GraphStates, AreThoseOfTheRunningGroup) {
    const Gate never(Folder() + "/never");
    Manifests("a.yaml", R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: idle, bin_path: $APP, depends: [base]}
- {app_name: deaf, term_time_out: 100000, )" +
                            Deaf(never) + R"(}
- {app_name: view, bin_path: $APP, is_dynamic_para: true}
- {app_name: user, bin_path: $APP, depends: [view@left]}
)");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "view@left", "deaf"}).exitCode, 0);
    ASSERT_NE(manager_->WaitForLine("deaf: deaf"), "") << manager_->Output();
    const pid_t deaf = PidNow("deaf");
    const auto change = Begin({"stop", "deaf", "--timeout", "90000"});
    while (StateOf("deaf") == "RUNNING") {
        ASSERT_FALSE(HasEnded(*change)) << change->Output();
    }
    const SsctlResult graph = Graph({"--states"});
    EXPECT_EQ(graph.exitCode, 0) << graph.complaint;
    EXPECT_EQ(graph.output, R"(digraph applications {
  rankdir=RL;
  label="double border: started at boot; dashed: template; red: cannot start\ngreen: runs; yellow: in transition; grey: does not run";
  fontname="sans-serif";
  node [shape=box, style="rounded,filled", fontname="sans-serif"];
  "base" [fillcolor="#cfe2f3", peripheries=2, fillcolor="#9fdf9f"];
  "idle" [fillcolor="#e6f0d8", fillcolor="#d0d0d0"];
  "deaf" [fillcolor="#e6f0d8", fillcolor="#ffe08a"];
  "view" [fillcolor="#f0f0f0", style="rounded,filled,dashed"];
  "user" [fillcolor="#e6f0d8", fillcolor="#d0d0d0"];
  "view@left" [fillcolor="#ffffff", fillcolor="#9fdf9f"];
  "idle" -> "base";
  "user" -> "view@left";
  "view@left" -> "view" [style=dotted, arrowhead=empty];
}
)");
    kill(deaf, SIGKILL);
    EXPECT_EQ(change->WaitForExit(), 0) << change->Output();
    const nlohmann::json applications = Document({"graph", Folder() + "/manifests", "--states"}).at("applications");
    EXPECT_EQ(applications.at(0).at("state"), "RUNNING");
    EXPECT_EQ(applications.at(2).at("name"), "deaf");
    EXPECT_EQ(applications.at(2).at("state"), "NOT_RUNNING");
}

TEST_F(GraphStates, NeedAGroupOwnerAndTheGraphAloneNeedsNone) {
    Manifests("a.yaml", "{app_name: base, bin_path: $APP}");
    const SsctlResult states = Graph({"--states"});
    EXPECT_EQ(states.exitCode, 3);
    EXPECT_EQ(states.output, "");
    EXPECT_THAT(states.complaint, HasSubstr("no group owner serves 'grp_owner'"));
    const SsctlResult graph = Graph();
    EXPECT_EQ(graph.exitCode, 0) << graph.complaint;
    EXPECT_THAT(graph.output, HasSubstr("\"base\" [fillcolor=\"#e6f0d8\"];\n"));
    EXPECT_THAT(graph.output, Not(HasSubstr("green: runs")));
}
