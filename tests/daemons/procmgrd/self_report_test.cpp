#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kApps = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true,
   arguments: [off-on-term, ready]}
- {app_name: quiet, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true}
- {app_name: parent, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true,
   arguments: [child-ready]}
- {app_name: plain, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [ready]}
- {app_name: brief, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true,
   arguments: [ready, exit=0]}
- {app_name: user, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true, arguments: [ready],
   uid: 23, gid: 23}
)";

class SelfReports : public DaemonTest {
protected:
    SelfReports() { Manifests(kApps); }

    std::vector<std::string> Addresses() const {
        std::vector<std::string> paths;
        for (const auto& entry : std::filesystem::directory_iterator(RunDir() + "/app")) {
            paths.push_back(entry.path());
        }
        return paths;
    }

    static void SendTo(const std::string& path, const std::string& text) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        EXPECT_EQ(sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&address), sizeof(address)),
                  static_cast<ssize_t>(text.size()));
        close(fd);
    }
};

TEST_F(SelfReports, ReachTheOwnerWithNamePidAndStateAfterTheReportOfTheStart) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    const SelfReport on = OwnerClient::WaitSelfReport();
    EXPECT_EQ(on.appName, "cam");
    EXPECT_EQ(on.state, 0U);
    EXPECT_EQ(on.pid, static_cast<int>(owner->WaitReport("cam").pid));
    WaitPid("cam waits");
    owner->Term({"cam"});
    EXPECT_EQ(OwnerClient::WaitSelfReport().state, 1U);
    EXPECT_EQ(owner->WaitReport("cam").appState, 3U);
    EXPECT_THAT(owner->History(), ElementsAre("cam 0", "cam on", "cam off", "cam 3"));
}

TEST_F(SelfReports, OfAChildOfTheApplicationCountAndCarryTheApplicationsPid) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"parent"});
    const SelfReport on = OwnerClient::WaitSelfReport();
    EXPECT_EQ(on.appName, "parent");
    EXPECT_EQ(on.pid, static_cast<int>(owner->WaitReport("parent").pid));
}

TEST_F(SelfReports, OfAnApplicationThatEndsAtOnceStillCome) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"brief"});
    EXPECT_EQ(owner->WaitReport("brief").appState, 0U);
    EXPECT_EQ(owner->WaitReport("brief").appState, 3U);
    EXPECT_THAT(owner->History(), ElementsAre("brief 0", "brief on", "brief 3"));
}

TEST_F(SelfReports, OfAStrangerAreRefusedAndLoggedWithUserAndPid) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "quiet");
    ASSERT_EQ(Addresses().size(), 1U);
    SendTo(Addresses()[0], "procmgr 1 on");
    EXPECT_THAT(daemon_->WaitForLine("refused a report"),
                HasSubstr("application quiet: refused a report from process " + std::to_string(getpid()) + " of user " +
                          std::to_string(getuid())));
    EXPECT_THAT(owner->History(), ElementsAre("quiet 0"));
}

TEST_F(SelfReports, HaveAnAddressThatOnlyTheApplicationsUserMayUse) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "quiet");
    struct stat folder {};
    struct stat address {};
    ASSERT_EQ(stat((RunDir() + "/app").c_str(), &folder), 0);
    ASSERT_EQ(stat(Addresses().at(0).c_str(), &address), 0);
    EXPECT_EQ(folder.st_mode & 0777U, 0711U);
    EXPECT_EQ(address.st_mode & 0777U, 0600U);
}

TEST_F(SelfReports, OfAnotherUsersApplicationReachTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as another user";
    }
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"user"});
    EXPECT_EQ(WaitNote("user ready"), "0");
    EXPECT_EQ(OwnerClient::WaitSelfReport().appName, "user");
}

TEST_F(SelfReports, LoseTheirAddressWhenTheApplicationEnds) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "quiet");
    EXPECT_EQ(Addresses().size(), 1U);
    owner->Term({"quiet"});
    owner->WaitReport("quiet");
    EXPECT_TRUE(Addresses().empty());
}

TEST_F(SelfReports, AreImpossibleForAnApplicationThatDoesNotReport) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"plain"});
    EXPECT_EQ(WaitNote("plain ready"), "-1");
    EXPECT_TRUE(Addresses().empty());
}

TEST_F(SelfReports, GivenOnceAreRepeatedToAnOwnerThatReturns) {
    StartDaemon();
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    EXPECT_EQ(OwnerClient::WaitSelfReport().pid, pid);
    owner.reset();
    ASSERT_NE(daemon_->WaitForLine("is gone"), "");
    owner = Owner();
    owner->Start({"cam"});
    const SelfReport again = OwnerClient::WaitSelfReport();
    EXPECT_EQ(again.pid, pid);
    EXPECT_EQ(again.state, 0U);
    EXPECT_THAT(owner->History(), ElementsAre("cam 0", "cam on"));
}

TEST_F(SelfReports, GivenWhileTheOwnerIsAwayReachItWhenItReturns) {
    Manifests(R"(
{app_name: late, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true,
 arguments: [child-ready, off-on-term]}
)");
    StartDaemon();
    auto owner = Owner();
    owner->Start({"late"});
    owner.reset();
    ASSERT_NE(daemon_->WaitForLine("says that it is ready"), "");
    owner = Owner();
    owner->Start({"late"});
    EXPECT_EQ(owner->WaitReport("late").appState, 0U);
    EXPECT_EQ(OwnerClient::WaitSelfReport().appName, "late");
}

}  // namespace
}  // namespace ProcmgrdTest
