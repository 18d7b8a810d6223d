// The manifests of a real group are read again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include "tests/integration/served_group.h"

using testing::EndsWith;
using testing::HasSubstr;

class Reload : public ServedGroup {
protected:
    void RemoveManifests(const std::string& fileName) const {
        ASSERT_EQ(std::remove((Folder() + "/manifests/" + fileName).c_str()), 0);
    }
};

TEST_F(Reload, IsRefusedWhileAChangeRunsAndDoneAfterwards) {
    const Gate gate(Folder() + "/gate");
    Manifests("a.yaml", "{app_name: slow, " + ReadyBehind(gate) + "}");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    Manifests("b.yaml", "{app_name: late, bin_path: $APP}");
    const auto change = Begin({"start", "slow", "--timeout", "50000"});
    ASSERT_NE(owner_->WaitForLine("StartNoDependsApps start end."), "");
    EXPECT_EQ(Ssctl({"reload"}).exitCode, 1);
    EXPECT_NE(owner_->WaitForLine("ApplicationManager: cannot reload now. (isTransitionFinish=false)"), "");
    EXPECT_EQ(Ssctl({"list", "--names"}).output, "slow\n");
    gate.Open();
    EXPECT_EQ(change->WaitForExit(), 0) << change->Output();
    EXPECT_EQ(Ssctl({"reload"}).exitCode, 0);
    EXPECT_EQ(Ssctl({"list", "--names"}).output, "late\nslow\n");
    EXPECT_EQ(StateOf("slow"), "RUNNING");
}

TEST_F(Reload, KeepsProcessAndStateOfApplicationsThatItFindsAgain) {
    Manifests("a.yaml", R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: same, bin_path: $APP, restart: on-failure}
- {app_name: idle, bin_path: $APP}
- {app_name: view, bin_path: $APP, is_dynamic_para: true}
)");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "same", "view@left"}).exitCode, 0);
    const std::string before = Ssctl({"--json", "state"}).output;
    EXPECT_THAT(before, HasSubstr("view@left"));
    Manifests("b.yaml", "{app_name: late, bin_path: $APP, depends: [same]}");
    ASSERT_EQ(Ssctl({"reload"}).exitCode, 0);
    EXPECT_EQ(Ssctl({"--json", "state", "base", "idle", "same", "view@left"}).output, before);
    ASSERT_EQ(Ssctl({"start", "late"}).exitCode, 0) << "its dependency counts as running";

    const pid_t same = PidNow("same");
    kill(same, SIGKILL);
    ASSERT_NE(owner_->WaitForLine("] ABNORMAL_EXIT"), "");
    ASSERT_NE(owner_->WaitForLine("] SWITCH_ON"), "");
    EXPECT_NE(PidNow("same"), same) << "its policy holds";
    EXPECT_EQ(Ssctl({"stop", "view"}).exitCode, 0);
    EXPECT_EQ(Ssctl({"list", "--names"}).output, "base\nidle\nlate\nsame\n");
}

TEST_F(Reload, LeavesTheProcessOfAChangedManifestAndStartsTheNextOneByIt) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, arguments: [--tick, \"70\"], env_argv: {MODE: old}}");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "cam"}).exitCode, 0);
    const pid_t before = PidNow("cam");
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, arguments: [--tick, \"80\"], env_argv: {MODE: new}}");
    ASSERT_EQ(Ssctl({"reload"}).exitCode, 0);
    EXPECT_EQ(PidNow("cam"), before);
    EXPECT_TRUE(IsAlive(before));
    ASSERT_EQ(Ssctl({"restart", "cam"}).exitCode, 0);
    const pid_t after = PidNow("cam");
    EXPECT_NE(after, before);
    EXPECT_THAT(CommandLineOf(after), EndsWith(" --tick 80 "));
    EXPECT_THAT(EnvironmentOf(after), HasSubstr("MODE=new "));
}

TEST_F(Reload, KnowsAddedApplicationsAndForgetsRemovedOnes) {
    Manifests("a.yaml", "{app_name: stays, bin_path: $APP}");
    Manifests("b.yaml", "{app_name: goes, bin_path: $APP}");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "stays", "goes"}).exitCode, 0);
    const pid_t goes = PidNow("goes");
    ASSERT_NO_FATAL_FAILURE(RemoveManifests("b.yaml"));
    Manifests("c.yaml", "{app_name: comes, bin_path: $APP, depends: [stays]}");
    ASSERT_EQ(Ssctl({"reload"}).exitCode, 0);
    EXPECT_EQ(Ssctl({"list", "--names"}).output, "comes\nstays\n");
    EXPECT_EQ(Ssctl({"start", "goes"}).exitCode, 1);
    EXPECT_EQ(StateOf("goes"), "NOT_RUNNING");
    EXPECT_TRUE(IsAlive(goes)) << "a reload ends nothing";
    ExpectRun(Ssctl({"start", "comes"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "comes        start   SUCCESS\n");
    EXPECT_TRUE(IsAlive(PidNow("comes")));
}

TEST_F(Reload, FollowsChangedDependencies) {
    Manifests("a.yaml", R"(
- {app_name: one, bin_path: $APP}
- {app_name: two, bin_path: $APP, depends: [one]}
)");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "one", "two"}).exitCode, 0);
    Manifests("a.yaml", R"(
- {app_name: one, bin_path: $APP, depends: [two]}
- {app_name: two, bin_path: $APP}
)");
    ASSERT_EQ(Ssctl({"reload"}).exitCode, 0);
    ASSERT_EQ(Ssctl({"stop", "one", "two"}).exitCode, 0);
    EXPECT_LT(PositionOf("SWITCH_OFF", "one"), PositionOf("SWITCH_OFF", "two"));
}

TEST_F(Reload, WithABrokenManifestLeavesEverythingAsItWasAndSaysWhichFileAndLine) {
    Manifests("a.yaml", R"(
- {app_name: runs, bin_path: $APP, is_auto_boot: true}
- {app_name: rests, bin_path: $APP, arguments: [--tick, "70"], env_argv: {MODE: old}, depends: [runs]}
)");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    const std::string before = Ssctl({"--json", "state"}).output;
    Manifests("a.yaml", R"(
- {app_name: runs, bin_path: /no/such/program, is_auto_boot: true}
- {app_name: rests, bin_path: $APP, arguments: [--tick, "80"], env_argv: {MODE: new}, depends: [gone]}
- {app_name: added, bin_path: $APP}
)");
    Manifests("b.yaml", "# the second file\n- {app_name: good, bin_path: $APP}\n- {app_name: bad, bin_pth: $APP}\n");
    EXPECT_EQ(Ssctl({"reload"}).exitCode, 1);
    EXPECT_NE(manager_->WaitForLine("b.yaml:3:"), "") << "whoever refuses it says where";
    EXPECT_EQ(Ssctl({"--json", "state"}).output, before);
    ASSERT_EQ(Ssctl({"start", "rests"}).exitCode, 0) << "by the dependencies of before";
    EXPECT_THAT(CommandLineOf(PidNow("rests")), EndsWith(" --tick 70 "));
    EXPECT_THAT(EnvironmentOf(PidNow("rests")), HasSubstr("MODE=old ")) << "nor has the process manager changed";
    EXPECT_EQ(Ssctl({"restart", "runs"}).exitCode, 0);
    EXPECT_EQ(Ssctl({"start", "added"}).exitCode, 1);

    ASSERT_NO_FATAL_FAILURE(RemoveManifests("b.yaml"));
    EXPECT_EQ(Ssctl({"reload"}).exitCode, 0) << "the next one is not refused";
    EXPECT_EQ(Ssctl({"list", "--names"}).output, "runs\nadded\nrests\n");
}

TEST_F(Reload, KeepsAnApplicationThatWaitsForItsReadiness) {
    const Gate gate(Folder() + "/gate");
    Manifests("a.yaml", "{app_name: waiting, " + ReadyBehind(gate) + "}");
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    EXPECT_EQ(Ssctl({"start", "waiting", "--timeout", "500", "--wait", "60000"}).exitCode, 1);
    ASSERT_EQ(Ssctl({"reload"}).exitCode, 0);
    gate.Open();
    ASSERT_NE(owner_->WaitForLine("] REPORTED_READY"), "");
    EXPECT_EQ(Ssctl({"start", "waiting"}).exitCode, 0) << "it runs already";
    EXPECT_EQ(PidNow("waiting"), PidOf("waiting"));
    EXPECT_EQ(LeftOver().size(), 3U) << "one application and the two daemons";
}
