#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/integration/group_fixture.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

/// Applications that say what they have to say in the words of unmodified programs.
class AppReports : public GroupFixture {
protected:
    /// Manifests with "$PROBE" for the application that speaks to the address itself.
    void Apps(std::string yaml) const {
        const std::string placeholder = "$PROBE";
        for (size_t at = yaml.find(placeholder); at != std::string::npos; at = yaml.find(placeholder, at)) {
            yaml.replace(at, placeholder.size(), NOTIFY_PROBE);
        }
        Manifests("apps.yaml", yaml);
    }

    /// Starts both daemons; the group comes up when it has what it waits for.
    void Start() {
        ASSERT_NO_FATAL_FAILURE(StartManager());
        StartOwner();
    }

    std::string MakeFifo() const {
        const std::string path = Folder() + "/fifo";
        EXPECT_EQ(mkfifo(path.c_str(), 0666), 0);
        return path;
    }

    /// Waits until an application has come to its "fifo:".
    static void AwaitFifo(const std::string& path) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        char byte = 0;
        EXPECT_EQ(read(fd, &byte, 1), 0);
        close(fd);
    }

    /// The process manager takes notice of nothing until LetManagerGoOn().
    void HoldManager() const {
        manager_->Signal(SIGSTOP);
        int status = 0;
        EXPECT_EQ(waitpid(manager_->Pid(), &status, WUNTRACED), manager_->Pid());
        EXPECT_TRUE(WIFSTOPPED(status));
    }
    void LetManagerGoOn() const { manager_->Signal(SIGCONT); }

    std::string OnlyAddress() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::directory_iterator(Folder() + "/run/app")) {
            paths.push_back(entry.path());
        }
        EXPECT_EQ(paths.size(), 1U);
        return paths.at(0);
    }

    /// Sends from a process that is gone when this returns.
    static void SendByStrangerThatEnds(const std::string& path, const std::string& text) {
        const pid_t child = fork();
        if (child == 0) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            path.copy(address.sun_path, sizeof(address.sun_path) - 1);
            const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
            const ssize_t sent =
                sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
            _exit(sent == static_cast<ssize_t>(text.size()) ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }

    void ExpectInManagersOutput(const std::string& first, const std::string& second) const {
        const size_t at = manager_->Output().find(first);
        ASSERT_NE(at, std::string::npos) << first;
        EXPECT_NE(manager_->Output().find(second, at), std::string::npos) << second;
    }
};

TEST_F(AppReports, ReadinessOfAnUnmodifiedProgramLetsThoseThatDependOnItStart) {
    Apps(R"(
- {app_name: cam, bin_path: $PROBE, arguments: ["send:READY=1"], is_reporting: true, is_auto_boot: true}
- {app_name: user, bin_path: $APP, is_auto_boot: true, depends: [cam]}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_LT(PositionOf("REPORTED_READY", "cam"), PositionOf("SWITCH_ON", "user"));
}

TEST_F(AppReports, ReadinessOfARosNodeIsHeardToo) {
    Apps("{app_name: cam, bin_path: $PROBE, arguments: ['send:READY=1'], is_ros_node: true, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_NE(PositionOf("REPORTED_READY", "cam"), std::string::npos);
    EXPECT_THAT(owner_->Output(), HasSubstr("(appName=cam,state=on,pid="));
}

TEST_F(AppReports, StoppingOfAnUnmodifiedProgramReachesTheLibraryAsItsSwitchOff) {
    Apps(R"({app_name: cam, bin_path: $PROBE, arguments: ["send:READY=1", "usr1", "send:STOPPING=1"],
              is_reporting: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    kill(PidOf("cam"), SIGUSR1);
    const std::string pid = std::to_string(PidOf("cam"));
    EXPECT_NE(owner_->WaitForLine("] REPORTED_STOPPING"), "");
    EXPECT_NE(owner_->WaitForLine("ReportAppStateFromApp. (appName=cam,state=off,pid=" + pid + ")"), "");
}

TEST_F(AppReports, StatusIsLoggedWithoutControlCharactersAndOnceMoreAtTheEnd) {
    Apps(R"({app_name: cam, bin_path: $PROBE, arguments: ["send:READY=1\nSTATUS=on \e[2Jwatch", "barrier"],
              is_reporting: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_NE(manager_->WaitForLine("the barrier is passed"), "");
    EXPECT_THAT(manager_->Output(), HasSubstr(" says: on \\x1b[2Jwatch\n"));
    kill(PidOf("cam"), SIGKILL);
    EXPECT_NE(manager_->WaitForLine("application cam ended; the last that it said: on \\x1b[2Jwatch"), "");
}

TEST_F(AppReports, BarrierIsPassedWhenEverythingBeforeItWasHandled) {
    Apps(R"({app_name: cam, bin_path: $PROBE, arguments: ["send:READY=1", "send:STATUS=one", "barrier"],
              is_reporting: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_NE(manager_->WaitForLine("the barrier is passed"), "");
    ExpectInManagersOutput("says that it is ready", "the barrier is passed");
    ExpectInManagersOutput("says: one", "the barrier is passed");
}

TEST_F(AppReports, OfAProcessOfTheApplicationThatHasEndedAlreadyCount) {
    const std::string fifo = MakeFifo();
    Apps("{app_name: cam, bin_path: $PROBE, arguments: ['say:waiting', usr1, 'send-by-child:READY=1', 'fifo:" + fifo +
         "'], is_reporting: true, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::string started = manager_->WaitForLine("application cam runs, pid ");
    ASSERT_NE(started, "");
    const auto cam = static_cast<pid_t>(std::stol(started.substr(started.find("runs, pid ") + 10)));
    ASSERT_TRUE(manager_->WaitForOutput("cam: waiting\n"));
    HoldManager();
    kill(cam, SIGUSR1);
    AwaitFifo(fifo);
    LetManagerGoOn();
    EXPECT_NE(owner_->WaitForLine("] REPORTED_READY"), "");
    EXPECT_EQ(PidOf("cam"), cam) << "told as the application's, not the child's";
    EXPECT_THAT(manager_->Output(), Not(HasSubstr("refused a report")));
}

TEST_F(AppReports, OfAnotherUsersProcessThatHasEndedAreRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as another user";
    }
    fs::permissions(Folder(), fs::perms(0711));
    Apps(
        "{app_name: cam, bin_path: /bin/sleep, arguments: ['1000'], is_reporting: true, is_auto_boot: true,"
        " uid: 23, gid: 23}");
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_NE(manager_->WaitForLine("application cam"), "");
    const std::string address = OnlyAddress();
    HoldManager();
    SendByStrangerThatEnds(address, "READY=1");
    LetManagerGoOn();
    EXPECT_THAT(manager_->WaitForLine("refused a report"), HasSubstr("of user 0, which does not belong to it"));
}

TEST_F(AppReports, OfAnApplicationThatNobodyWaitsForChangeNothing) {
    Apps(R"({app_name: cam, bin_path: $PROBE, arguments: ["send:READY=1", "send:STOPPING=1", "barrier"],
              heart_beat_switch: true, is_auto_boot: true})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_NE(manager_->WaitForLine("the barrier is passed"), "");
    ExpectInManagersOutput("says that it is ready; nobody waits for that", "says that it is stopping; nobody waits");
    EXPECT_THAT(owner_->Output(), Not(HasSubstr("REPORTED_")));
}

TEST_F(AppReports, ThatAreHostileCostNothingButThemselves) {
    Apps(R"({app_name: cam, bin_path: $PROBE, is_reporting: true, is_auto_boot: true, arguments: [
              send-nothing, send-binary, "send-with-descriptors:X=1", "send-long:X=1", "send:MAINPID=1",
              "send-with-descriptors:what", barrier, "send-long:READY=1"]})");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_NE(manager_->WaitForLine("the barrier is passed"), "");
    EXPECT_THAT(manager_->Output(), Not(HasSubstr("cannot send")));
    const std::string descriptors = "/proc/" + std::to_string(manager_->Pid()) + "/fd";
    EXPECT_LT(std::distance(fs::directory_iterator(descriptors), fs::directory_iterator()), 40);
}

TEST_F(AppReports, OfAnApplicationThatTalksWithoutEndKeepNobodyElseWaiting) {
    Apps(R"(
- {app_name: talker, bin_path: $PROBE, arguments: ["repeat:STATUS=", "repeat:X=", "send:READY=1"], is_reporting: true,
   is_auto_boot: true}
- {app_name: cam, bin_path: $PROBE, arguments: ["send:READY=1"], is_reporting: true, is_auto_boot: true}
)");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_LT(PositionOf("REPORTED_READY", "cam"), PositionOf("REPORTED_READY", "talker"));
    EXPECT_NE(manager_->WaitForLine("says: 499"), "");
}

/// The example in shell, with nothing but socat.
class ShellExample : public GroupFixture {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(GroupFixture::SetUp());
        if (!fs::exists("/usr/bin/socat")) {
            GTEST_SKIP() << "needs socat";
        }
        fs::copy(std::string(SHELL_EXAMPLE) + "/manifests", Folder() + "/manifests", fs::copy_options::recursive);
        Manifests("replace.yaml", "cfgmgr_env: {SHELL_APPS: " SHELL_EXAMPLE "}");
    }
};

TEST_F(ShellExample, ReportsItsReadinessAndSaysWhatItDoes) {
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_LT(PositionOf("REPORTED_READY", "sentry"), PositionOf("SWITCH_ON", "gate"));
    EXPECT_NE(manager_->WaitForLine("says: on watch"), "");
    manager_->Signal(SIGTERM);
    EXPECT_EQ(manager_->WaitForExit(), 0);
    EXPECT_THAT(manager_->Output(), HasSubstr("the last that it said: going off watch"));
}

TEST_F(ShellExample, BeatsAndIsMissedWhenItHangs) {
    environment_["PROCMGR_HEARTBEAT_PERIOD_MS"] = "200";
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    const pid_t sentry = PidOf("sentry");
    kill(sentry, SIGSTOP);
    EXPECT_NE(owner_->WaitForLine("] HEART_BEAT_LOST"), "");
    kill(sentry, SIGCONT);
    EXPECT_NE(owner_->WaitForLine("] HEART_BEAT_RECOVERY"), "");
}
