#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kApps = R"(
- {app_name: base, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}}
- {app_name: middle, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, depends: [base]}
- {app_name: top, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, depends: [middle]}
- {app_name: tree, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [child, orphan]}
- {app_name: speaker, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true}
- {app_name: deaf, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [deaf], term_time_out: 600000}
- {app_name: spared, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [deaf], term_time_out: 1,
   is_force_term: false}
)";

class TheDaemon : public DaemonTest {
protected:
    TheDaemon() { Manifests(kApps); }
};

TEST_F(TheDaemon, StopsEverythingOnSigtermDependantsFirst) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "base");
    StartAndWait(*owner, "middle");
    StartAndWait(*owner, "top");
    StopDaemon();
    // The owner is still connected to what is gone; what came before is there.
    EXPECT_EQ(owner->WaitReport("top").appState, 3U);
    EXPECT_EQ(owner->WaitReport("middle").appState, 3U);
    EXPECT_EQ(owner->WaitReport("base").appState, 3U);
}

TEST_F(TheDaemon, StopsEverythingOnSigintToo) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "base");
    daemon_->Signal(SIGINT);
    EXPECT_EQ(daemon_->WaitForExit(), 0);
    EXPECT_TRUE(Survivors().empty());
    daemon_.reset();
}

TEST_F(TheDaemon, KillsWhatDoesNotEndWithinTheTimeOfTheStop) {
    StartDaemon({"--stop-timeout", "100"});
    const auto owner = Owner();
    StartAndWait(*owner, "deaf");
    StartAndWait(*owner, "spared");
    StartAndWait(*owner, "base");
    StopDaemon();
    EXPECT_EQ(owner->WaitReport("deaf").appState, 3U);
    EXPECT_EQ(owner->WaitReport("spared").appState, 3U);
}

TEST_F(TheDaemon, KillsWhatIsLeftOnASecondSignal) {
    StartDaemon({"--stop-timeout", "600000"});
    const auto owner = Owner();
    StartAndWait(*owner, "deaf");
    daemon_->Signal(SIGTERM);
    ASSERT_NE(daemon_->WaitForLine("stopping: 1 applications"), "");
    daemon_->Signal(SIGTERM);
    EXPECT_EQ(daemon_->WaitForExit(), 0);
    EXPECT_TRUE(Survivors().empty());
    daemon_.reset();
}

TEST_F(TheDaemon, RefusesStartsAndOwnersWhileItStops) {
    StartDaemon({"--stop-timeout", "600000"});
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "deaf");
    daemon_->Signal(SIGTERM);
    ASSERT_NE(daemon_->WaitForLine("stopping: 1 applications"), "");
    owner->Start({"base"});
    EXPECT_EQ(Summary(owner->WaitReport("base")), "kind 4 reason 9 value 0");
    EXPECT_EQ(OwnerClient("late").Error(), ESHUTDOWN);
    kill(pid, SIGKILL);
    EXPECT_EQ(daemon_->WaitForExit(), 0);
    daemon_.reset();
}

TEST_F(TheDaemon, ThatWasKilledLeavesNoDoublesToTheNextOne) {
    StartDaemon();
    auto owner = Owner();
    owner->Start({"tree", "base", "speaker"});
    EXPECT_EQ(owner->WaitReport("speaker").appState, 0U);
    const pid_t tree = static_cast<pid_t>(owner->WaitReport("tree").pid);
    const pid_t base = static_cast<pid_t>(owner->WaitReport("base").pid);
    WaitPid("tree orphan");
    daemon_->Signal(SIGKILL);
    EXPECT_EQ(daemon_->WaitForExit(), 128 + SIGKILL);
    owner.reset();
    StartDaemon();
    EXPECT_FALSE(Lives(tree));
    EXPECT_FALSE(Lives(base));
    EXPECT_TRUE(Survivors().empty());
    EXPECT_THAT(daemon_->Output(), HasSubstr("is left from an earlier procmgrd"));
    owner = Owner();
    // Not by its note: the one of the first start may still be unread.
    owner->Start({"base"});
    const pid_t again = static_cast<pid_t>(owner->WaitReport("base").pid);
    EXPECT_THAT(Survivors(), ElementsAre(again));
    EXPECT_TRUE(std::filesystem::is_empty(RunDir() + "/app"));
}

TEST_F(TheDaemon, RefusesARunFolderThatAnotherOneUses) {
    StartDaemon();
    ChildProcess second({PROCMGRD_PATH, "--run-dir", RunDir()}, {});
    EXPECT_NE(second.WaitForLine("another procmgrd uses this run folder"), "");
    EXPECT_EQ(second.WaitForExit(), 1);
    const auto owner = Owner();
    StartAndWait(*owner, "base");
}

TEST_F(TheDaemon, BelievesNothingThatLiesInARunFolderThatOthersMayWrite) {
    std::filesystem::create_directories(RunDir() + "/app");
    std::ofstream(RunDir() + "/procmgrd.state") << "procmgr-state 1 x\n";
    std::filesystem::permissions(RunDir(), std::filesystem::perms::all);
    ChildProcess daemon({PROCMGRD_PATH, "--run-dir", RunDir()}, {});
    EXPECT_NE(daemon.WaitForLine("belongs to another user or is writable by others"), "");
    EXPECT_EQ(daemon.WaitForExit(), 1);
    EXPECT_FALSE(std::filesystem::exists(RunDir() + "/procmgrd.state.lock"));
}

TEST_F(TheDaemon, RefusesALinkInPlaceOfItsFolderOfAddresses) {
    std::filesystem::create_directories(Folder() + "/elsewhere");
    std::filesystem::create_directories(RunDir());
    std::filesystem::create_directory_symlink(Folder() + "/elsewhere", RunDir() + "/app");
    ChildProcess daemon({PROCMGRD_PATH, "--run-dir", RunDir()}, {});
    EXPECT_NE(daemon.WaitForLine("can't use the folder " + RunDir() + "/app: Not a directory"), "");
    EXPECT_EQ(daemon.WaitForExit(), 1);
}

TEST_F(TheDaemon, RefusesALogFolderThatOthersMayWrite) {
    std::filesystem::create_directories(Folder() + "/logs");
    std::filesystem::permissions(Folder() + "/logs", std::filesystem::perms::all);
    ChildProcess daemon({PROCMGRD_PATH, "--run-dir", RunDir(), "--log-dir", Folder() + "/logs"}, {});
    EXPECT_NE(daemon.WaitForLine("can't use the folder " + Folder() + "/logs: Operation not permitted"), "");
    EXPECT_EQ(daemon.WaitForExit(), 1);
}

TEST_F(TheDaemon, TakesTheRunFolderFromTheEnvironment) {
    ChildProcess daemon({PROCMGRD_PATH}, {{"PROCMGR_RUN_DIR", RunDir()}});
    EXPECT_THAT(daemon.WaitForLine("procmgrd: ready"), HasSubstr("listening at " + RunDir() + "/PROCMGR.sock"));
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.WaitForExit(), 0);
}

TEST_F(TheDaemon, WritesAByteToTheReadyDescriptorWhenItIsReady) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ChildProcess daemon({PROCMGRD_PATH, "--run-dir", RunDir(), "--ready-fd", std::to_string(ends[1])}, {});
    close(ends[1]);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    EXPECT_TRUE(std::filesystem::exists(RunDir() + "/PROCMGR.sock"));
    EXPECT_EQ(read(ends[0], &byte, 1), 0);
    close(ends[0]);
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.WaitForExit(), 0);
}

TEST_F(TheDaemon, SaysWhatIsWrongWithItsOptions) {
    ChildProcess bad({PROCMGRD_PATH, "--on-owner-exit", "maybe"}, {});
    EXPECT_NE(bad.WaitForLine("--on-owner-exit"), "");
    EXPECT_EQ(bad.WaitForExit(), 2);
    ChildProcess relative({PROCMGRD_PATH, "--run-dir", "here"}, {});
    EXPECT_NE(relative.WaitForLine("must be an absolute path"), "");
    EXPECT_EQ(relative.WaitForExit(), 2);
}

TEST_F(TheDaemon, SaysWhatIsWrongWithItsRules) {
    std::ofstream(Folder() + "/rules") << "allow everybody\n";
    std::filesystem::permissions(Folder() + "/rules", std::filesystem::perms::owner_read);
    ChildProcess daemon({PROCMGRD_PATH, "--run-dir", RunDir(), "--rules", Folder() + "/rules"}, {});
    EXPECT_NE(daemon.WaitForLine("bad rules: "), "");
    EXPECT_EQ(daemon.WaitForExit(), 1);
}

TEST_F(TheDaemon, PrintsItsVersionAndItsHelp) {
    ChildProcess version({PROCMGRD_PATH, "--version"}, {});
    EXPECT_NE(version.WaitForLine("procmgrd "), "");
    EXPECT_EQ(version.WaitForExit(), 0);
    ChildProcess help({PROCMGRD_PATH, "--help"}, {});
    EXPECT_NE(help.WaitForLine("--on-owner-exit"), "");
    EXPECT_EQ(help.WaitForExit(), 0);
}

}  // namespace
}  // namespace ProcmgrdTest
