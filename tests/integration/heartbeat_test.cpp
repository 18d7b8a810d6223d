#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/integration/group_fixture.h"

using testing::HasSubstr;
using testing::Not;

/// Applications whose hearts the group owner watches.
class HeartBeats : public GroupFixture {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(GroupFixture::SetUp());
        environment_["PROCMGR_HEARTBEAT_PERIOD_MS"] = "50";
    }

    /// Stops the process and lets it go on; its owner must tell both.
    void ExpectLossAndRecovery(const std::string& application) {
        const pid_t pid = PidOf(application);
        kill(pid, SIGSTOP);
        const std::string lost = owner_->WaitForLine("] HEART_BEAT_LOST");
        EXPECT_THAT(lost, HasSubstr(" " + application + " "));
        kill(pid, SIGCONT);
        const std::string back = owner_->WaitForLine("] HEART_BEAT_RECOVERY");
        EXPECT_THAT(back, HasSubstr(" " + application + " "));
        EXPECT_THAT(back, HasSubstr("pid " + std::to_string(pid)));
    }

    /// Lets real time pass, which is what a heart that must not be missed needs.
    void LetSecondsPass(const char* seconds) const {
        ChildProcess clock({"/bin/sleep", seconds}, environment_);
        EXPECT_EQ(clock.WaitForExit(), 0);
    }
};

TEST_F(HeartBeats, FromTheMainLoopAreMissedWhileItIsStoppedAndComeBack) {
    Manifests("a.yaml", R"({app_name: cam, bin_path: $APP, arguments: ["--beat-every", "50"],
                            heart_beat_switch: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    ExpectLossAndRecovery("cam");
    ExpectLossAndRecovery("cam");
}

TEST_F(HeartBeats, FromTheThreadOfTheLibraryToo) {
    Manifests("a.yaml", R"({app_name: cam, bin_path: $APP, arguments: ["--beat-every", "0", "--ready-after", "1"],
                            is_reporting: true, heart_beat_switch: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    ExpectLossAndRecovery("cam");
}

TEST_F(HeartBeats, OfAnotherUserAndGroupToo) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as another user";
    }
    std::filesystem::permissions(Folder(), std::filesystem::perms(0711));
    Manifests("a.yaml", R"({app_name: cam, bin_path: $APP, arguments: ["--beat-every", "50"],
                            heart_beat_switch: true, is_auto_boot: true, uid: 23, gid: 23})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    ExpectLossAndRecovery("cam");
}

TEST_F(HeartBeats, AreMissedWhenTheyNeverBegin) {
    Manifests("a.yaml", "{app_name: mute, bin_path: $APP, heart_beat_switch: true, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    EXPECT_THAT(owner_->WaitForLine("] HEART_BEAT_LOST"), HasSubstr(" mute "));
}

TEST_F(HeartBeats, AreNotMissedOfAnApplicationThatHasNone) {
    Manifests("a.yaml", R"(
- {app_name: plain, bin_path: $APP, is_auto_boot: true}
- {app_name: mute, bin_path: $APP, heart_beat_switch: true, is_auto_boot: true, depends: [plain]}
)");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    EXPECT_THAT(owner_->WaitForLine("] HEART_BEAT_LOST"), HasSubstr(" mute ")) << "plain was up before it";
}

TEST_F(HeartBeats, ThatAStoppedProcessManagerDoesNotBringAreNotMissed) {
    environment_["PROCMGR_HEARTBEAT_PERIOD_MS"] = "200";
    Manifests("a.yaml", R"({app_name: cam, bin_path: $APP, arguments: ["--beat-every", "100"],
                            heart_beat_switch: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    manager_->Signal(SIGSTOP);
    LetSecondsPass("2");
    manager_->Signal(SIGCONT);
    LetSecondsPass("1");
    kill(PidOf("cam"), SIGSTOP);
    EXPECT_NE(owner_->WaitForLine("] HEART_BEAT_LOST"), "");
    const std::string& told = owner_->Output();
    EXPECT_EQ(told.find("] HEART_BEAT_LOST"), told.rfind("] HEART_BEAT_LOST")) << told;
    EXPECT_THAT(told, Not(HasSubstr("HEART_BEAT_RECOVERY")));
    kill(PidOf("cam"), SIGCONT);
}

TEST_F(HeartBeats, AreNotMissedByAnOwnerThatWasStoppedItself) {
    environment_["PROCMGR_HEARTBEAT_PERIOD_MS"] = "200";
    Manifests("a.yaml", R"({app_name: cam, bin_path: $APP, arguments: ["--beat-every", "100"],
                            heart_beat_switch: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    owner_->Signal(SIGSTOP);
    LetSecondsPass("2");
    owner_->Signal(SIGCONT);
    LetSecondsPass("1");
    kill(PidOf("cam"), SIGSTOP);
    EXPECT_NE(owner_->WaitForLine("] HEART_BEAT_LOST"), "");
    const std::string& told = owner_->Output();
    EXPECT_EQ(told.find("] HEART_BEAT_LOST"), told.rfind("] HEART_BEAT_LOST")) << told;
    EXPECT_THAT(told, Not(HasSubstr("HEART_BEAT_RECOVERY")));
    kill(PidOf("cam"), SIGCONT);
}

TEST_F(HeartBeats, WithoutAPauseKeepNobodyElsesFromTheOwner) {
    Manifests("a.yaml", std::string(R"(
- {app_name: cam, bin_path: $APP, arguments: ["--beat-every", "50"], heart_beat_switch: true, is_auto_boot: true}
- {app_name: hasty, bin_path: )") +
                            NOTIFY_PROBE +
                            ", arguments: [beat-without-pause], heart_beat_switch: true, "
                            "is_auto_boot: true}\n");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t hasty = PidOf("hasty");
    kill(hasty, SIGSTOP);
    std::string lost = owner_->WaitForLine("] HEART_BEAT_LOST");
    while (lost.find(" hasty ") == std::string::npos && !lost.empty()) {
        lost = owner_->WaitForLine("] HEART_BEAT_LOST");
    }
    EXPECT_NE(lost, "");
    kill(hasty, SIGCONT);
    EXPECT_NE(owner_->WaitForLine("] HEART_BEAT_RECOVERY"), "");
}

TEST_F(HeartBeats, AreAskedForInTheEnvironmentOfAnUnmodifiedProgram) {
    environment_["PROCMGR_HEARTBEAT_MISSES"] = "4";
    Manifests("a.yaml", std::string("{app_name: cam, bin_path: ") + NOTIFY_PROBE +
                            ", arguments: [watchdog], heart_beat_switch: true, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_NE(manager_->WaitForLine("cam: watchdog 200000 of mine"), "");
}

TEST_F(HeartBeats, AreWatchedAnewByAnOwnerThatReturns) {
    Manifests("a.yaml", R"({app_name: cam, bin_path: $APP, arguments: ["--beat-every", "50"],
                            heart_beat_switch: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    owner_->Signal(SIGKILL);
    owner_->WaitForExit();
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output();
    ExpectLossAndRecovery("cam");
}
