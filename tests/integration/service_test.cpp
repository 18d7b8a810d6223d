#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <vector>

#include "tests/daemons/service/notice_receiver.h"
#include "tests/integration/group_fixture.h"

using testing::Lt;

/// The daemons as services of somebody who listens to them.
class Service : public GroupFixture {
protected:
    void SetUp() override {
        GroupFixture::SetUp();
        receiver_ = std::make_unique<NoticeReceiver>(Folder() + "/notify");
    }

    void TearDown() override {
        GroupFixture::TearDown();
        receiver_.reset();
    }

    /// The daemons that are started from now on have an address.
    void Ask(const std::string& watchdogUsec = {}) {
        environment_["NOTIFY_SOCKET"] = Folder() + "/notify";
        if (!watchdogUsec.empty()) {
            environment_["WATCHDOG_USEC"] = watchdogUsec;
        }
    }

    std::unique_ptr<NoticeReceiver> receiver_;
};

TEST_F(Service, OfTheProcessManagerIsReadyWhenItsSocketIsThere) {
    Ask();
    manager_ = std::make_unique<ChildProcess>(std::vector<std::string>{PROCMGRD_PATH}, environment_);
    EXPECT_EQ(receiver_->Await(), "READY=1\nSTATUS=owners: 0, applications: 0");
    EXPECT_TRUE(std::filesystem::is_socket(Folder() + "/run/PROCMGR.sock"));
}

TEST_F(Service, OfTheProcessManagerSpeaksToAnAbstractAddress) {
    environment_["NOTIFY_SOCKET"] = "@" + Folder();
    const NoticeReceiver receiver("@" + Folder());
    ASSERT_NO_FATAL_FAILURE(StartManager());
    EXPECT_EQ(receiver.Await(), "READY=1\nSTATUS=owners: 0, applications: 0");
}

TEST_F(Service, OfTheProcessManagerBeatsAgainAndAgain) {
    Ask("20000");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    EXPECT_EQ(receiver_->Await(), "READY=1\nSTATUS=owners: 0, applications: 0");
    for (int beat = 0; beat < 5; ++beat) {
        EXPECT_EQ(receiver_->Await(), "WATCHDOG=1");
    }
}

TEST_F(Service, OfTheProcessManagerCountsAndTellsThatItStops) {
    Ask();
    ASSERT_NO_FATAL_FAILURE(StartManager());
    environment_.erase("NOTIFY_SOCKET");
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    StartOwner();
    EXPECT_EQ(receiver_->AwaitWith("applications: 1"), "STATUS=owners: 1, applications: 1");
    ASSERT_NE(owner_->WaitForLine("] UP "), "");
    manager_->Signal(SIGTERM);
    EXPECT_EQ(receiver_->AwaitWith("STOPPING=1"), "STOPPING=1\nSTATUS=owners: 1, applications: 1");
    EXPECT_EQ(manager_->WaitForExit(), 0);
}

TEST_F(Service, OfTheProcessManagerIsNotThatOfItsApplications) {
    Ask("600000000");
    Manifests("a.yaml", R"(
app_name: cam
bin_path: /bin/sh
arguments: [-c, 'echo "address [$NOTIFY_SOCKET] time [$WATCHDOG_USEC]"; exec sleep 1000']
is_auto_boot: true
)");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    environment_.erase("NOTIFY_SOCKET");
    StartOwner();
    EXPECT_NE(manager_->WaitForLine("cam: address [] time []"), "") << manager_->Output();
}

TEST_F(Service, OfTheGroupOwnerIsReadyWhenItsGroupIs) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Ask();
    StartOwner();
    EXPECT_EQ(receiver_->Await(), "STATUS=connecting to the process manager");
    EXPECT_EQ(receiver_->AwaitWith("READY=1"), "READY=1\nSTATUS=every auto-boot application runs");
    EXPECT_TRUE(IsAlive(PidOf("cam")));
    owner_->Signal(SIGTERM);
    EXPECT_EQ(receiver_->Await(), "STOPPING=1\nSTATUS=asked to end");
    EXPECT_EQ(owner_->WaitForExit(), 0);
}

TEST_F(Service, OfTheGroupOwnerIsReadyAlsoWhenNotEveryApplicationCameUp) {
    Manifests("a.yaml", "{app_name: ghost, bin_path: /no/such/program, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Ask();
    StartOwner();
    EXPECT_EQ(receiver_->AwaitWith("READY=1"),
              "READY=1\nSTATUS=not every auto-boot application runs; the log says which and why");
}

TEST_F(Service, OfTheGroupOwnerWritesAByteToTheReadyDescriptorWhenTheBootIsOver) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    StartOwner({"--ready-fd", std::to_string(ends[1])});
    close(ends[1]);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    EXPECT_EQ(read(ends[0], &byte, 1), 0);
    EXPECT_NE(owner_->WaitForLine("] UP "), "");
    close(ends[0]);
}

TEST_F(Service, OfTheGroupOwnerSaysThatTheReadyDescriptorTakesNothing) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner({"--ready-fd", "999"});
    EXPECT_NE(owner_->WaitForLine("grpownerd: cannot tell the descriptor of --ready-fd that the group is up: Bad file "
                                  "descriptor"),
              "");
}

TEST_F(Service, OfTheGroupOwnerBeatsAgainAndAgain) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Ask("20000");
    StartOwner();
    receiver_->AwaitWith("READY=1");
    for (int beat = 0; beat < 5; ++beat) {
        EXPECT_EQ(receiver_->Await(), "WATCHDOG=1");
    }
}

TEST_F(Service, OfTheGroupOwnerTellsThatTheProcessManagerIsLost) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Ask();
    StartOwner();
    receiver_->AwaitWith("READY=1");
    manager_->Signal(SIGTERM);
    EXPECT_EQ(receiver_->Await(), "STOPPING=1\nSTATUS=the connection to the process manager is lost");
    EXPECT_EQ(owner_->WaitForExit(), 3);
}

TEST_F(Service, SaysWhatReachedNobodyAndGoesOn) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    environment_["NOTIFY_SOCKET"] = Folder() + "/nobody";
    ASSERT_NO_FATAL_FAILURE(StartManager());
    EXPECT_NE(manager_->WaitForLine("can't tell " + Folder() +
                                    "/nobody, the address in NOTIFY_SOCKET, that the "
                                    "daemon is ready: No such file or directory"),
              "");
    StartOwner();
    EXPECT_NE(owner_->WaitForLine("grpownerd: cannot tell " + Folder() +
                                  "/nobody, the address in NOTIFY_SOCKET, "
                                  "that the group is up: No such file"),
              "");
    EXPECT_TRUE(IsAlive(PidOf("cam")));
}

TEST_F(Service, OfAGroupOwnerThatIsAnApplicationItselfIsWhatItsDependantsWaitFor) {
    Manifests("inner.yaml", "{app_name: camera, bin_path: $APP, is_auto_boot: true}");
    std::filesystem::create_directory(Folder() + "/inner");
    std::filesystem::rename(Folder() + "/manifests/inner.yaml", Folder() + "/inner/inner.yaml");
    Manifests("outer.yaml", std::string(R"(
- app_name: vision
  bin_path: )") + GRPOWNERD_PATH +
                                R"(
  env_argv: {PROC_NAME: vision, STARTUP_ENTRY_PATH: )" +
                                Folder() + R"(/inner}
  is_reporting: true
  heart_beat_switch: true
  is_auto_boot: true
- {app_name: user, bin_path: $APP, is_auto_boot: true, depends: [vision]}
)");
    ASSERT_NO_FATAL_FAILURE(Boot());
    EXPECT_THAT(PositionOf("REPORTED_READY", "vision"), Lt(PositionOf("SWITCH_ON", "user")));
    EXPECT_NE(manager_->WaitForLine("owner vision: application camera"), "") << manager_->Output();
}
