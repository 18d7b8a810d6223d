#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>

#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kApps = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}}
- {app_name: tree, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [child, orphan],
   term_time_out: 50}
- {app_name: deaf, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [deaf], term_time_out: 50}
- {app_name: spared, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [deaf], term_time_out: 50,
   is_force_term: false}
- {app_name: spared-tree, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [deaf, orphan],
   term_time_out: 1, is_force_term: false}
- {app_name: patient, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [deaf],
   term_time_out: 600000}
- {app_name: seven, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [exit-7-on-term]}
- {app_name: copy, bin_path: "${DIR}/copy", env_argv: {TEST_NOTES: "${DIR}/notes"}}
- {app_name: done, bin_path: "${APP}", arguments: [exit=0]}
- {app_name: failing, bin_path: "${APP}", arguments: [exit=3]}
- {app_name: crashing, bin_path: "${APP}", arguments: [die=10]}
)";

class Terminating : public DaemonTest {
protected:
    Terminating() { Manifests(kApps); }
};
class Restarting : public Terminating {};
class Exit : public Terminating {};

TEST_F(Terminating, IsANormalExit) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner->Term({"cam"});
    const AppStateInfo report = owner->WaitReport("cam");
    EXPECT_EQ(Summary(report), "kind 3 reason 0 value 0");
    EXPECT_EQ(static_cast<pid_t>(report.pid), pid);
    EXPECT_FALSE(Lives(pid));
}

TEST_F(Terminating, IsANormalExitHoweverTheProcessEnded) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "seven");
    owner->Term({"seven"});
    EXPECT_EQ(Summary(owner->WaitReport("seven")), "kind 3 reason 0 value 0");
}

TEST_F(Terminating, EndsTheWholeTreeAndReportsWhenAllOfItIsGone) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"tree"});
    // The three notes come in any order.
    const pid_t first = static_cast<pid_t>(owner->WaitReport("tree").pid);
    const std::string notes[] = {WaitNote("tree"), WaitNote("tree"), WaitNote("tree")};
    owner->Term({"tree"});
    EXPECT_EQ(owner->WaitReport("tree").appState, 3U);
    EXPECT_FALSE(Lives(first));
    for (const std::string& note : notes) {
        EXPECT_FALSE(Lives(std::stoi(note.substr(note.find(' '))))) << note;
    }
    EXPECT_TRUE(Survivors().empty());
    EXPECT_EQ(ZombieChildren(daemon_->Pid()), 0U);
}

TEST_F(Terminating, KillsAfterTheTimeOutWhenForceIsAllowed) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "deaf");
    owner->Term({"deaf"});
    EXPECT_EQ(Summary(owner->WaitReport("deaf")), "kind 3 reason 0 value 0");
    EXPECT_FALSE(Lives(pid));
    EXPECT_THAT(daemon_->WaitForLine("did not end within its term_time_out"), HasSubstr("application deaf"));
}

TEST_F(Terminating, TellsTheTimeOutWhenForceIsNotAllowedAndTheApplicationRunsOn) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "spared");
    owner->Term({"spared"});
    const AppStateInfo report = owner->WaitReport("spared");
    EXPECT_EQ(Summary(report), "kind 2 reason 0 value 0");
    EXPECT_EQ(static_cast<pid_t>(report.pid), pid);
    EXPECT_TRUE(Lives(pid));
    EXPECT_THAT(owner->Query({"spared"}), ElementsAre(testing::Pair("spared", 0U)));
    // What happens to it later, nobody asked for.
    kill(pid, SIGKILL);
    EXPECT_EQ(Summary(owner->WaitReport("spared")), "kind 4 reason 4 value 9");
}

TEST_F(Terminating, OfSomethingThatDoesNotRunIsAnsweredAtOnce) {
    StartDaemon();
    const auto owner = Owner();
    owner->Term({"cam", "ghost"});
    EXPECT_EQ(Summary(owner->WaitReport("cam")), "kind 3 reason 0 value 0");
    EXPECT_EQ(Summary(owner->WaitReport("ghost")), "kind 3 reason 0 value 0");
    EXPECT_THAT(owner->History(), ElementsAre("cam 3", "ghost 3"));
}

TEST_F(Terminating, TwiceIsAnsweredByTheEnd) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "patient");
    owner->Term({"patient", "patient"});
    owner->Term({"patient"});
    EXPECT_THAT(owner->Query({"patient"}), ElementsAre(testing::Pair("patient", 2U)));
    kill(pid, SIGKILL);
    EXPECT_EQ(Summary(owner->WaitReport("patient")), "kind 3 reason 0 value 0");
    EXPECT_THAT(owner->Query({"patient"}), ElementsAre(testing::Pair("patient", 1U)));
}

TEST_F(Terminating, FollowedByAStartEndsInANewProcess) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t first = StartAndWait(*owner, "patient");
    owner->Term({"patient"});
    owner->Start({"patient"});
    EXPECT_THAT(owner->Query({"patient"}), ElementsAre(testing::Pair("patient", 2U)));
    kill(first, SIGKILL);
    EXPECT_EQ(owner->WaitReport("patient").appState, 3U);
    const AppStateInfo second = owner->WaitReport("patient");
    EXPECT_EQ(second.appState, 0U);
    EXPECT_THAT(Survivors(), ElementsAre(static_cast<pid_t>(second.pid)));
    kill(static_cast<pid_t>(second.pid), SIGKILL);
    EXPECT_EQ(owner->WaitReport("patient").appState, 4U);
}

TEST_F(Restarting, TellsOnlyTheNewProcess) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t first = StartAndWait(*owner, "cam");
    owner->Restart({"cam"});
    const AppStateInfo report = owner->WaitReport("cam");
    EXPECT_EQ(Summary(report), "kind 1 reason 0 value 0");
    EXPECT_NE(static_cast<pid_t>(report.pid), first);
    EXPECT_FALSE(Lives(first));
    EXPECT_EQ(WaitPid("cam waits"), static_cast<pid_t>(report.pid));
    EXPECT_THAT(owner->History(), ElementsAre("cam 0", "cam 1"));
}

TEST_F(Restarting, KillsAnOldProcessThatDoesNotEnd) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t first = StartAndWait(*owner, "deaf");
    owner->Restart({"deaf"});
    EXPECT_EQ(owner->WaitReport("deaf").appState, 1U);
    EXPECT_FALSE(Lives(first));
}

TEST_F(Restarting, OfAProcessThatMayNotBeForcedTellsTheTimeOut) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t first = StartAndWait(*owner, "spared");
    owner->Restart({"spared"});
    const AppStateInfo report = owner->WaitReport("spared");
    EXPECT_EQ(report.appState, 2U);
    EXPECT_EQ(static_cast<pid_t>(report.pid), first);
    kill(first, SIGKILL);
    EXPECT_EQ(owner->WaitReport("spared").appState, 4U);
}

TEST_F(Restarting, OfSomethingThatDoesNotRunStartsItAndIsToldTheSameWay) {
    StartDaemon();
    const auto owner = Owner();
    owner->Restart({"cam"});
    const AppStateInfo report = owner->WaitReport("cam");
    EXPECT_EQ(Summary(report), "kind 1 reason 0 value 0");
    EXPECT_EQ(WaitPid("cam waits"), static_cast<pid_t>(report.pid));
}

TEST_F(Restarting, TellsAnAbnormalExitWhenTheNewProgramCannotBeExecuted) {
    std::filesystem::copy(PROBE_PATH, Folder() + "/copy");
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "copy");
    std::filesystem::remove(Folder() + "/copy");
    owner->Restart({"copy"});
    EXPECT_EQ(Summary(owner->WaitReport("copy")), "kind 4 reason 2 value 2");
    EXPECT_THAT(owner->History(), ElementsAre("copy 0", "copy 4"));
    EXPECT_TRUE(Survivors().empty());
}

TEST_F(Restarting, ManyTimesInARowNeverMakesTwoProcesses) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    for (int i = 0; i < 20; ++i) {
        owner->Restart({"cam"});
        EXPECT_LE(Survivors().size(), 1U);
    }
    owner->Term({"cam"});
    while (owner->WaitReport("cam").appState != 3U) {
    }
    EXPECT_TRUE(Survivors().empty());
}

TEST_F(Exit, WithCodeZeroIsToldAsNormal) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"done"});
    EXPECT_EQ(owner->WaitReport("done").appState, 0U);
    EXPECT_EQ(Summary(owner->WaitReport("done")), "kind 3 reason 0 value 0");
}

TEST_F(Exit, WithAnotherCodeIsToldAsAbnormalWithTheCode) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"failing"});
    EXPECT_EQ(owner->WaitReport("failing").appState, 0U);
    EXPECT_EQ(Summary(owner->WaitReport("failing")), "kind 4 reason 5 value 3");
    EXPECT_THAT(daemon_->WaitForLine("application failing"), HasSubstr("owner group"));
}

TEST_F(Exit, BySignalIsToldAsAbnormalWithTheSignal) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"crashing"});
    EXPECT_EQ(owner->WaitReport("crashing").appState, 0U);
    EXPECT_EQ(Summary(owner->WaitReport("crashing")), "kind 4 reason 4 value 10");
}

TEST_F(Exit, ThatNobodyAskedForTakesTheRestOfTheTreeWithIt) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"tree"});
    const pid_t first = static_cast<pid_t>(owner->WaitReport("tree").pid);
    for (int i = 0; i < 3; ++i) {
        WaitNote("tree");
    }
    kill(first, SIGKILL);
    EXPECT_EQ(Summary(owner->WaitReport("tree")), "kind 4 reason 4 value 9");
    EXPECT_TRUE(Survivors().empty());
    EXPECT_EQ(ZombieChildren(daemon_->Pid()), 0U);
}

TEST_F(Exit, AfterATimeOutTakesTheRestOfTheTreeWithIt) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"spared-tree"});
    const auto pid = static_cast<pid_t>(owner->WaitReport("spared-tree").pid);
    const pid_t orphan = WaitPid("spared-tree orphan");
    owner->Term({"spared-tree"});
    EXPECT_EQ(owner->WaitReport("spared-tree").appState, 2U);
    kill(pid, SIGKILL);
    EXPECT_EQ(Summary(owner->WaitReport("spared-tree")), "kind 4 reason 4 value 9");
    EXPECT_FALSE(Lives(orphan));
    EXPECT_TRUE(Survivors().empty());
}

TEST_F(Exit, OfAnOrphanIsReapedWhileItsApplicationRuns) {
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"tree"});
    owner->WaitReport("tree");
    const pid_t orphan = WaitPid("tree orphan");
    kill(orphan, SIGKILL);
    EXPECT_TRUE(WaitGone(orphan));
    // Each answer is a turn of the daemon, which reaps at its end.
    const auto deadline = std::chrono::steady_clock::now() + ChildProcess::kPatience;
    while (ZombieChildren(daemon_->Pid()) != 0 && std::chrono::steady_clock::now() < deadline) {
        owner->Query({"tree"});
    }
    EXPECT_EQ(ZombieChildren(daemon_->Pid()), 0U);
    EXPECT_THAT(owner->Query({"tree"}), ElementsAre(testing::Pair("tree", 0U)));
}

TEST_F(Exit, IsSeenByAQueryAsNotRunning) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "cam");
    EXPECT_THAT(owner->Query({"cam", "ghost"}), ElementsAre(testing::Pair("cam", 0U), testing::Pair("ghost", 1U)));
    owner->Term({"cam"});
    owner->WaitReport("cam");
    EXPECT_THAT(owner->Query({"cam"}), ElementsAre(testing::Pair("cam", 1U)));
}

}  // namespace
}  // namespace ProcmgrdTest
