// System states as events, and the log of the owner that tells them, which goes to a syslog of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "tests/integration/group_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class Events : public GroupFixture {
protected:
    /// The owner under a syslog of its own, which syslog_ prints.
    void BootWithEvents(const std::string& queue) {
        const std::string pipe = Folder() + "/syslog";
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        syslog_ = std::make_unique<ChildProcess>(std::vector<std::string>{"/bin/cat", pipe},
                                                 std::map<std::string, std::string>());
        Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
        ASSERT_NO_FATAL_FAILURE(StartManager());
        owner_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{WITH_SYSLOG_PATH, pipe, GRPOWNERD_PATH, "--resource", "group", "--events", queue},
            environment_);
    }

    /// Where the kernel grants no mount namespace, nobody can look at the syslog.
    bool HasSyslog() const { return owner_->Output().find("with_syslog: no syslog") == std::string::npos; }

    int Ssctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {SSCTL_PATH, "--resource", "group"});
        return ChildProcess(arguments, environment_).WaitForExit();
    }

    /// Sets the state until each follower has told it, because nobody says when a follower is there.
    bool SetUntilTold(const std::string& state, ChildProcess& follower, const std::string& told) {
        const auto deadline = std::chrono::steady_clock::now() + ChildProcess::kPatience;
        std::atomic<bool> isTold{false};
        std::thread setting([&] {
            while (!isTold && std::chrono::steady_clock::now() < deadline && Ssctl({"set-state", state}) == 0) {
            }
        });
        const bool found = follower.WaitForOutput(told);
        isTold = true;
        setting.join();
        return found;
    }

    std::unique_ptr<ChildProcess> syslog_;
};

TEST_F(Events, TellEachSystemStateToAFollower) {
    ASSERT_NO_FATAL_FAILURE(BootWithEvents("group_events"));
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output();
    ChildProcess follower({SSCTL_PATH, "events", "--queue", "group_events"}, environment_);
    EXPECT_TRUE(SetUntilTold("suspend", follower, "SUSPEND\n")) << follower.Output();
    EXPECT_EQ(Ssctl({"set-state", "working"}), 0);
    EXPECT_TRUE(follower.WaitForOutput("WORKING\n")) << follower.Output();
    EXPECT_EQ(Ssctl({"set-state", "7"}), 0);
    EXPECT_TRUE(follower.WaitForOutput("UNKNOWN(7)\n")) << follower.Output();
    EXPECT_TRUE(owner_->WaitForOutput("SYSTEM_STATE         7, within 5000 ms"));
    EXPECT_THAT(owner_->Output(), Not(HasSubstr("EVENT_LOST")));
}

TEST_F(Events, NeedNobodyWhoFollows) {
    ASSERT_NO_FATAL_FAILURE(BootWithEvents("group_events"));
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output();
    EXPECT_EQ(Ssctl({"set-state", "working"}), 0);
    EXPECT_TRUE(owner_->WaitForOutput("SYSTEM_STATE         1, within 5000 ms"));
    EXPECT_THAT(owner_->Output(), Not(HasSubstr("EVENT_LOST")));
}

TEST_F(Events, SendEveryLaterLineOfTheLogToSyslog) {
    ASSERT_NO_FATAL_FAILURE(BootWithEvents("group_events"));
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output();
    if (!HasSyslog()) {
        GTEST_SKIP() << "this user gets no mount namespace, and so no syslog that can be looked at";
    }
    EXPECT_EQ(Ssctl({"set-state", "working"}), 0);
    owner_->Signal(SIGTERM);
    EXPECT_EQ(owner_->WaitForExit(), 0);
    const std::string before = "RegisterVfsService begin. serviceName=group";
    const std::string offered = "InitSysEventServer VEKRegisterQueueService success, serviceName=group_events";
    const std::string state = "SetSystemStateHandle with timeout callback begin. state=1(WORKING)";
    EXPECT_THAT(owner_->Output(), HasSubstr(before));
    EXPECT_THAT(owner_->Output(), Not(HasSubstr(offered)));
    EXPECT_THAT(owner_->Output(), Not(HasSubstr(state)));
    EXPECT_EQ(syslog_->WaitForExit(), 0);
    EXPECT_THAT(syslog_->Output(), HasSubstr(offered));
    EXPECT_THAT(syslog_->Output(), HasSubstr(state));
    EXPECT_THAT(syslog_->Output(), Not(HasSubstr(before)));
}

TEST_F(Events, OnTheNameOfTheResourceAreAWrongCommandLine) {
    StartOwner({"--resource", "group", "--events", "group"});
    EXPECT_EQ(owner_->WaitForExit(), 2);
    EXPECT_THAT(owner_->Output(), HasSubstr("grpownerd: --events needs another name than --resource"));
}

TEST_F(Events, WithoutAResourceAreAWrongCommandLine) {
    StartOwner({"--events", "group_events"});
    EXPECT_EQ(owner_->WaitForExit(), 2);
    EXPECT_THAT(owner_->Output(), HasSubstr("--events requires --resource"));
}

TEST_F(Events, ThatCannotBeOfferedKeepTheOwnerFromTakingCharge) {
    ASSERT_NO_FATAL_FAILURE(BootWithEvents("a/b"));
    EXPECT_EQ(owner_->WaitForExit(), 1);
    EXPECT_THAT(owner_->Output(), HasSubstr("grpownerd: cannot tell events on 'a/b': Invalid argument; see --events"));
    EXPECT_TRUE(IsUntold("cam"));
}

TEST_F(Events, AreSaidToSendTheLogToSyslogByTheHelp) {
    StartOwner({"--help"});
    EXPECT_EQ(owner_->WaitForExit(), 0);
    EXPECT_THAT(owner_->Output(), HasSubstr("--events"));
    EXPECT_THAT(owner_->Output(), HasSubstr("goes to syslog, and to syslog only"));
}

}  // namespace
