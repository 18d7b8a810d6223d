#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>

#include "platform/include/heartbeat.h"
#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

constexpr const char* kApps = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [ids]}
- {app_name: others, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [ids], uid: 23}
)";

constexpr uid_t kUser = 12345;
constexpr gid_t kGroup = 54321;

class Owners : public DaemonTest {
protected:
    Owners() { Manifests(kApps); }

    /// A file that lets kUser connect.
    std::string Rules() const {
        std::ofstream(Folder() + "/rules") << "allow uid " << kUser << "\n";
        chmod((Folder() + "/rules").c_str(), S_IRUSR | S_IWUSR);
        return Folder() + "/rules";
    }

    /// Does something as another user, in a process of its own; what it returns is the result, below 100.
    static int AsUser(const std::function<int()>& what) {
        const pid_t child = fork();
        if (child == 0) {
            const bool isUser = setgroups(0, nullptr) == 0 && setresgid(kGroup, kGroup, kGroup) == 0 &&
                                setresuid(kUser, kUser, kUser) == 0;
            _exit(isUser ? what() : 100);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status);
    }
};

TEST_F(Owners, HaveTheirApplicationsForThemselves) {
    StartDaemon();
    const auto first = Owner("first");
    const auto second = Owner("second");
    const pid_t pidOfFirst = StartAndWait(*first, "cam");
    EXPECT_THAT(second->Query({"cam"}), ElementsAre(Pair("cam", 1U)));
    const pid_t pidOfSecond = StartAndWait(*second, "cam");
    EXPECT_NE(pidOfFirst, pidOfSecond);
    second->Term({"cam"});
    EXPECT_EQ(second->WaitReport("cam").appState, 3U);
    EXPECT_THAT(first->Query({"cam"}), ElementsAre(Pair("cam", 0U)));
    EXPECT_THAT(first->History(), ElementsAre("cam 0"));
    EXPECT_TRUE(Lives(pidOfFirst));
}

TEST_F(Owners, ASecondOneOfTheSameNameIsRefusedWhileTheFirstIsThere) {
    StartDaemon();
    const auto first = Owner();
    const OwnerClient second("group");
    EXPECT_EQ(second.Error(), EADDRINUSE);
    EXPECT_EQ(OwnerClient("other").Error(), 0);
}

TEST_F(Owners, LeaveTheirApplicationsRunningWhenTheyGo) {
    StartDaemon();
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner.reset();
    EXPECT_NE(daemon_->WaitForLine("1 applications are kept running"), "");
    EXPECT_TRUE(Lives(pid));
}

TEST_F(Owners, ThatComeBackFindTheirApplicationRunning) {
    StartDaemon();
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner.reset();
    ASSERT_NE(daemon_->WaitForLine("is gone"), "");
    owner = Owner();
    owner->Start({"cam"});
    const AppStateInfo report = owner->WaitReport("cam");
    EXPECT_EQ(Summary(report), "kind 0 reason 0 value 0");
    EXPECT_EQ(static_cast<pid_t>(report.pid), pid);
    EXPECT_THAT(Survivors(), ElementsAre(pid));
}

TEST_F(Owners, ThatComeBackWithoutAnythingRunningAreNewOnes) {
    StartDaemon();
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner.reset();
    ASSERT_NE(daemon_->WaitForLine("is gone"), "");
    kill(pid, SIGKILL);
    ASSERT_NE(daemon_->WaitForLine("application cam (pid"), "");
    owner = std::make_unique<OwnerClient>("group");
    EXPECT_NE(daemon_->WaitForLine("owner group came"), "");
    // Its configuration is forgotten, too.
    owner->Start({"cam"});
    EXPECT_EQ(Summary(owner->WaitReport("cam")), "kind 4 reason 7 value 0");
}

TEST_F(Owners, TakeTheirApplicationsWithThemWhenTheDaemonIsToldSo) {
    StartDaemon({"--on-owner-exit", "terminate"});
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner.reset();
    EXPECT_TRUE(WaitGone(pid));
    EXPECT_NE(daemon_->WaitForLine("application cam (pid"), "");
}

TEST_F(Owners, OfUsersThatNoRuleAllowsAreRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to be another user";
    }
    StartDaemon();
    EXPECT_EQ(AsUser([] { return OwnerClient("group").Error(); }), EACCES);
}

TEST_F(Owners, OfAnotherUserDoNotGetTheApplicationsThatWereKept) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to be another user";
    }
    StartDaemon({"--rules", Rules()});
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner.reset();
    ASSERT_NE(daemon_->WaitForLine("is gone"), "");
    EXPECT_EQ(AsUser([] { return OwnerClient("group").Error(); }), EACCES);
    EXPECT_THAT(daemon_->WaitForLine("belong to another user"), HasSubstr("user 12345"));
    EXPECT_EQ(AsUser([] { return OwnerClient("elsewhere").Error(); }), 0);
    EXPECT_TRUE(Lives(pid));
}

TEST_F(Owners, ThatAreNotRootRunApplicationsUnderTheirOwnUserOnly) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to be another user";
    }
    StartDaemon({"--rules", Rules()});
    const int failures = AsUser([this] {
        const auto owner = Owner("users");
        owner->Start({"cam"});
        const bool isOwn = owner->WaitReport("cam").appState == 0U && WaitNote("cam ids") == "12345 54321";
        owner->Start({"others"});
        const bool isRefused = Summary(owner->WaitReport("others")) == "kind 4 reason 8 value 0";
        return (isOwn ? 0 : 1) + (isRefused ? 0 : 2);
    });
    EXPECT_EQ(failures, 0);
    EXPECT_NE(daemon_->WaitForLine("owner users: not started"), "");
}

TEST_F(Owners, ThatAreNotRootLoadOnlyWhatTheyMayRead) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to be another user";
    }
    const std::string file = ManifestPath() + "/apps.yaml";
    chmod(file.c_str(), S_IRUSR | S_IWUSR);
    StartDaemon({"--rules", Rules()});
    const auto loadThere = [&file, this] { return OwnerClient("users").Load(file, MatchData()) == 0 ? 1 : 0; };
    EXPECT_EQ(AsUser(loadThere), 0);
    EXPECT_THAT(daemon_->WaitForLine("owner users: bad manifest"), HasSubstr("Permission denied"));
    // Our own rights are back. None of this owner's threads is there any more when the next child is made.
    Owner().reset();
    EXPECT_EQ(chown(file.c_str(), 0, kGroup), 0);
    chmod(file.c_str(), S_IRUSR | S_IRGRP);
    EXPECT_EQ(AsUser(loadThere), 1);
}

TEST_F(Owners, ThatAreRootRunApplicationsUnderTheUserOfTheManifest) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to run as another user";
    }
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"others"});
    EXPECT_EQ(owner->WaitReport("others").appState, 0U);
    EXPECT_EQ(WaitNote("others ids"), "23 0");
}

TEST_F(Owners, ReportsOfTheirStateAreLogged) {
    StartDaemon();
    const auto owner = Owner();
    owner->SendText(3, "1#2#");
    EXPECT_THAT(daemon_->WaitForLine("its base services are"),
                HasSubstr("owner group: its base services are 2 (RUNNING)"));
    owner->SendText(5, "1#cam#1#7#8#");
    EXPECT_THAT(daemon_->WaitForLine("execution of"), HasSubstr("cam is 1 (TERMINATED), values 7 and 8"));
}

TEST_F(Owners, HeartbeatsAreWatchedFromTheFirstBeatOn) {
    environment_["PROCMGR_HEARTBEAT_PERIOD_MS"] = "20";
    ASSERT_EQ(setenv("PROCMGR_HEARTBEAT_PERIOD_MS", "20", 1), 0);
    StartDaemon();
    const auto owner = Owner();
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(RegisterSendHeartBeat("group", 5, "PROCMGR", 7, &handle), 0);
    EXPECT_NE(daemon_->WaitForLine("owner group (pid " + std::to_string(getpid()) + "): its heartbeat began"), "");
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
    EXPECT_NE(daemon_->WaitForLine("its heartbeat is lost"), "");
    ASSERT_EQ(RegisterSendHeartBeat("group", 5, "PROCMGR", 7, &handle), 0);
    EXPECT_NE(daemon_->WaitForLine("its heartbeat recovered"), "");
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST_F(Owners, HeartbeatsInTheNameOfAnotherProcessAreDropped) {
    environment_["PROCMGR_HEARTBEAT_PERIOD_MS"] = "20";
    StartDaemon();
    const auto owner = Owner();
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(RegisterSendHeartBeat("stranger", 8, "PROCMGR", 7, &handle), 0);
    EXPECT_NE(daemon_->WaitForLine("dropped a heartbeat of stranger from process " + std::to_string(getpid())), "");
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST_F(Owners, RequestsOfUnknownTypeAndMalformedOnesAreLoggedAndDropped) {
    StartDaemon();
    const auto owner = Owner();
    owner->SendText(8, "1#cam#");
    EXPECT_NE(daemon_->WaitForLine("dropped a request of unknown type 8"), "");
    owner->SendText(4, "1#cam#1#0#0#0#");
    EXPECT_NE(daemon_->WaitForLine("dropped a request of unknown type 4"), "");
    owner->SendText(0, "2#cam#0#0#");
    EXPECT_NE(daemon_->WaitForLine("dropped a malformed request of type 0"), "");
    owner->SendText(2, "one#cam#");
    EXPECT_NE(daemon_->WaitForLine("dropped a malformed request of type 2"), "");
    owner->SendText(9, "abc");
    EXPECT_NE(daemon_->WaitForLine("dropped a malformed request of type 9"), "");
    owner->SendRaw("short", 5);
    EXPECT_NE(daemon_->WaitForLine("dropped a request of 5 bytes"), "");
    EXPECT_EQ(owner->CallRaw(0, "1#cam#0#0#"), std::to_string(ENOSYS) + "#");
    EXPECT_EQ(owner->CallRaw(6, "1#path"), std::to_string(EINVAL) + "#");
    EXPECT_THAT(owner->History(), ElementsAre());
    StartAndWait(*owner, "cam");
}

TEST_F(Owners, ARecordThatClaimsMoreThanItHoldsIsReadOnlySoFar) {
    StartDaemon();
    const auto owner = Owner();
    ProcMgr::Message::RequestMsg record{};
    record.type = 2;
    record.size = ~uint64_t{0};
    for (char& byte : record.data) {
        byte = '#';
    }
    owner->SendRaw(&record, sizeof(record));
    EXPECT_NE(daemon_->WaitForLine("dropped a malformed request of type 2 with 3964 bytes"), "");
}

TEST_F(Owners, GetALongAnswerToAQueryInSeveralRecords) {
    StartDaemon();
    const auto owner = Owner();
    std::vector<std::string> names;
    for (int i = 100; i < 560; ++i) {
        names.push_back("n" + std::to_string(i));
    }
    const std::map<std::string, uint32_t> states = owner->Query(names);
    EXPECT_EQ(states.size(), names.size());
    EXPECT_THAT(states, testing::Each(Pair(testing::_, 1U)));
}

}  // namespace
}  // namespace ProcmgrdTest
