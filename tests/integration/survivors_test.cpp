#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "tests/integration/group_fixture.h"

using testing::HasSubstr;

/// One of the two daemons is killed; the other says what happened, and a new start works.
class Survivors : public GroupFixture {};

TEST_F(Survivors, OwnerKilledDuringABootLeavesAManagerThatSaysSoAndAcceptsTheNextOwner) {
    Manifests("a.yaml", R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: mute, bin_path: $APP, is_reporting: true, is_auto_boot: true, depends: [base]}
)");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("] SWITCH_ON"), "") << "base is up, mute will never report: the boot is under way";
    const pid_t base = PidOf("base");
    owner_->Signal(SIGKILL);
    owner_->WaitForExit();
    ASSERT_NE(manager_->WaitForLine("test_owner"), "");
    EXPECT_TRUE(IsAlive(base));

    StartOwner();
    ASSERT_NE(owner_->WaitForLine("] SWITCH_ON"), "");
    EXPECT_EQ(PidOf("base"), base) << "the application that still runs is taken over, not doubled";
}

TEST_F(Survivors, ManagerKilledMakesTheOwnerSayItAndEndWithItsOwnCode) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t cam = PidOf("cam");
    manager_->Signal(SIGKILL);
    manager_->WaitForExit();
    EXPECT_EQ(owner_->WaitForExit(), 3);
    EXPECT_THAT(owner_->Output(), HasSubstr("grpownerd: the connection to the process manager is lost"));

    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_FALSE(IsAlive(cam)) << "the next process manager ends what the killed one left";
    EXPECT_TRUE(IsAlive(PidOf("cam")));
    EXPECT_EQ(LeftOver().size(), 3U) << "one application and the two daemons";
}

TEST_F(Survivors, BothKilledTheNextPairBootsWithoutDoubles) {
    Manifests("a.yaml", R"(
- {app_name: cam, bin_path: $APP, is_auto_boot: true}
- {app_name: lidar, bin_path: $APP, is_auto_boot: true, depends: [cam]}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    owner_->Signal(SIGKILL);
    manager_->Signal(SIGKILL);
    owner_->WaitForExit();
    manager_->WaitForExit();
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_EQ(LeftOver().size(), 4U) << "two applications and the two daemons";
}

TEST_F(Survivors, ManagerAskedToEndWhileAnOwnerIsConnectedStopsItsApplications) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true, restart: on-forever}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t cam = PidOf("cam");
    manager_->Signal(SIGTERM);
    EXPECT_EQ(manager_->WaitForExit(), 0);
    EXPECT_EQ(owner_->WaitForExit(), 3);
    EXPECT_FALSE(IsAlive(cam));
}

TEST_F(Survivors, OwnerWhoseOutputNobodyReadsAnyMoreGoesOn) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    const std::vector<std::string> readsOneLine = {"/bin/sh", "-c", GRPOWNERD_PATH " | read -r line"};
    owner_ = std::make_unique<ChildProcess>(readsOneLine, environment_);
    EXPECT_NE(manager_->WaitForLine("owner test_owner: its base services are"), "") << manager_->Output();
    manager_->Signal(SIGTERM);
    EXPECT_EQ(manager_->WaitForExit(), 0);
    owner_->WaitForExit();
}

TEST_F(Survivors, OwnerWhoseOutputIsStuckBootsAndEndsWhenAsked) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    constexpr int kShellDescriptor = 9;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    while (write(ends[1], "", 1) == 1) {
    }
    ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
    ASSERT_EQ(dup2(ends[1], kShellDescriptor), kShellDescriptor);
    const std::vector<std::string> stuck = {"/bin/sh", "-c", "exec " GRPOWNERD_PATH " >&9"};
    owner_ = std::make_unique<ChildProcess>(stuck, environment_);
    EXPECT_NE(manager_->WaitForLine("owner test_owner: its base services are"), "") << manager_->Output();
    owner_->Signal(SIGTERM);
    EXPECT_EQ(owner_->WaitForExit(), 0);
    for (const int descriptor : {kShellDescriptor, ends[0], ends[1]}) {
        close(descriptor);
    }
}

TEST_F(Survivors, OwnerRefusesANameThatNoPipeCarries) {
    StartOwner({"--name", "two\nlines"});
    EXPECT_EQ(owner_->WaitForExit(), 2);
    EXPECT_THAT(owner_->Output(), HasSubstr("the name must have 1 to 128 bytes, no '/' and no control character"));
}

TEST_F(Survivors, ReturningOwnerFindsAReadinessThatWasGivenBefore) {
    Manifests("a.yaml", R"(
- {app_name: slow, bin_path: $APP, arguments: [--ready-after, "50"], is_reporting: true, is_auto_boot: true}
- {app_name: user, bin_path: $APP, is_auto_boot: true, depends: [slow]}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t slow = PidOf("slow");
    owner_->Signal(SIGKILL);
    owner_->WaitForExit();
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output();
    EXPECT_EQ(PidOf("slow"), slow);
}
