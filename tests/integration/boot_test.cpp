#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/integration/group_fixture.h"

using testing::HasSubstr;

class Boot : public GroupFixture {};

TEST_F(Boot, StartsAChainAndADiamondInTheOrderOfTheirDependencies) {
    Manifests("a.yaml", R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: left, bin_path: $APP, is_auto_boot: true, depends: [base]}
- {app_name: right, bin_path: $APP, is_auto_boot: true, depends: [base]}
- {app_name: top, bin_path: $APP, is_auto_boot: true, depends: [left, right]}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_LT(PositionOf("SWITCH_ON", "base"), PositionOf("SWITCH_ON", "left"));
    EXPECT_LT(PositionOf("SWITCH_ON", "base"), PositionOf("SWITCH_ON", "right"));
    EXPECT_LT(PositionOf("SWITCH_ON", "left"), PositionOf("SWITCH_ON", "top"));
    EXPECT_LT(PositionOf("SWITCH_ON", "right"), PositionOf("SWITCH_ON", "top"));
    EXPECT_TRUE(IsAlive(PidOf("top")));
}

TEST_F(Boot, WaitsForTheReadinessReportOfASelfReportingApplication) {
    Manifests("a.yaml", R"(
- {app_name: slow, bin_path: $APP, arguments: [--ready-after, "150"], is_reporting: true, is_auto_boot: true}
- {app_name: user, bin_path: $APP, is_auto_boot: true, depends: [slow]}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_LT(PositionOf("REPORTED_READY", "slow"), PositionOf("SWITCH_ON", "user"));
}

TEST_F(Boot, RunsASharedObjectInsideItsHost) {
    Manifests("a.yaml", std::string("{app_name: map, is_so: true, so_path: ") + ROBOT_FOLDER +
                            ", so_name: map_server.so, arguments: [cellar], is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_TRUE(IsAlive(PidOf("map")));
    EXPECT_NE(manager_->WaitForLine("serving the map 'cellar'"), "");
}

TEST_F(Boot, LeavesDrivingApplicationsAndTemplatesAlone) {
    Manifests("a.yaml", R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: drive, bin_path: $APP, depends: [base]}
- {app_name: view, bin_path: $APP, is_dynamic_para: true}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_TRUE(IsUntold("drive"));
    EXPECT_TRUE(IsUntold("view"));
    EXPECT_EQ(LeftOver().size(), 3U) << "one application and the two daemons";
}

TEST_F(Boot, BringsAKilledApplicationBackByItsPolicy) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true, restart: on-failure}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t old = PidOf("cam");
    kill(old, SIGKILL);
    ASSERT_NE(owner_->WaitForLine("] ABNORMAL_EXIT"), "");
    ASSERT_NE(owner_->WaitForLine("] SWITCH_ON"), "");
    EXPECT_NE(PidOf("cam"), old);
    EXPECT_TRUE(IsAlive(PidOf("cam")));
}

TEST_F(Boot, DoesNotBringBackAnApplicationWithoutARestartPolicy) {
    Manifests("a.yaml", R"(
- {app_name: cam, bin_path: $APP, is_auto_boot: true}
- {app_name: witness, bin_path: $APP, is_auto_boot: true, restart: on-forever}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t cam = PidOf("cam");
    kill(cam, SIGKILL);
    ASSERT_NE(owner_->WaitForLine("don't need restart cam. (restart=)"), "") << owner_->Output();
    EXPECT_EQ(PidOf("cam"), cam);
}

TEST_F(Boot, ReplacesKeysInManifestsByTheReplacementData) {
    Manifests("replace.yaml", "cfgmgr_env: {WHERE: " ROBOT_FOLDER "}");
    Manifests("a.yaml", "{app_name: cam, bin_path: \"${WHERE}/robot_app\", is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_TRUE(IsAlive(PidOf("cam")));
}

TEST_F(Boot, SaysWhichApplicationDidNotStart) {
    Manifests("a.yaml", R"(
- {app_name: good, bin_path: $APP, is_auto_boot: true}
- {app_name: ghost, bin_path: /no/such/program, is_auto_boot: true}
- {app_name: user, bin_path: $APP, is_auto_boot: true, depends: [ghost]}
)");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("Base application start failed. (Name=ghost,result=START_FAILED)"), "");
    ASSERT_NE(owner_->WaitForLine("Base application start failed. (Name=user,result=INIT)"), "");
    ASSERT_NE(owner_->WaitForLine("] PARTLY_UP "), "");
    EXPECT_TRUE(IsAlive(PidOf("good")));
}

TEST_F(Boot, LeavesTheApplicationsRunningWhenTheOwnerIsAskedToEnd) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    owner_->Signal(SIGTERM);
    EXPECT_EQ(owner_->WaitForExit(), 0);
    EXPECT_TRUE(IsAlive(PidOf("cam")));
    manager_->Signal(SIGTERM);
    EXPECT_EQ(manager_->WaitForExit(), 0);
    EXPECT_FALSE(IsAlive(PidOf("cam")));
}

TEST_F(Boot, OfManyApplicationsInOneWaveBringsUpEachOfThem) {
    std::string yaml;
    for (int at = 0; at < 60; ++at) {
        yaml += "- {app_name: app" + std::to_string(at) + ", bin_path: $APP, is_auto_boot: true}\n";
    }
    Manifests("a.yaml", yaml);
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_EQ(LeftOver().size(), 62U) << "sixty applications and the two daemons";
}

TEST_F(Boot, IsRefusedWithoutManifests) {
    environment_["STARTUP_ENTRY_PATH"] = Folder() + "/nowhere";
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    EXPECT_EQ(owner_->WaitForExit(), 1);
    EXPECT_THAT(owner_->Output(), HasSubstr("ApplicationManager init failed: startup entry path is empty"));
    EXPECT_THAT(owner_->Output(), HasSubstr("grpownerd: cannot take charge of the group."));
}

TEST_F(Boot, EndsAtOnceWhenAskedToWhileNoProcessManagerIsThere) {
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("CONNECTING"), "");
    owner_->Signal(SIGTERM);
    EXPECT_EQ(owner_->WaitForExit(), 0);
}

TEST_F(Boot, WaitsForAProcessManagerThatComesLater) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("CONNECTING"), "");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    EXPECT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output();
}

TEST_F(Boot, RefusesAWrongCommandLine) {
    StartOwner({"--entry-pth", "x"});
    EXPECT_EQ(owner_->WaitForExit(), 2);
    EXPECT_THAT(owner_->Output(), HasSubstr("--entry-pth"));
}

TEST_F(Boot, RefusesASecondOwnerOfTheSameName) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    ChildProcess second({GRPOWNERD_PATH}, environment_);
    EXPECT_EQ(second.WaitForExit(), 1);
    EXPECT_THAT(second.Output(), HasSubstr("ProcMgrAgent : TunorOpen failed!!"));
    EXPECT_TRUE(IsAlive(PidOf("cam")));
}
