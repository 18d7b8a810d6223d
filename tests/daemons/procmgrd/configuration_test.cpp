#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using testing::HasSubstr;

constexpr const char* kCam = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [args=one]}
)";
constexpr const char* kNewCam = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [args=two]}
- {app_name: radar, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}}
)";
constexpr const char* kBad = R"(
- {app_name: broken, bin_pth: /bin/true}
)";

class Loading : public DaemonTest {};
class Reloading : public DaemonTest {};

TEST_F(Loading, AnswersZero) {
    Manifests(kCam);
    StartDaemon();
    const OwnerClient owner("group");
    OwnerClient second("second");
    EXPECT_EQ(second.CallRaw(6, "1#" + ManifestPath() + "#3#APP#a#DIR#b#OBJECT#c#"), "0#");
}

TEST_F(Loading, OfAPathThatIsNotThereAnswersNotZero) {
    StartDaemon();
    OwnerClient owner("group");
    EXPECT_NE(owner.Load(Folder() + "/nowhere", {}), 0);
    EXPECT_NE(daemon_->WaitForLine("bad manifest: "), "");
}

TEST_F(Loading, KeepsTheGoodOnesBesideABadOneAndLogsWhereItIsBad) {
    Manifests(kCam);
    Manifests(kBad, "bad.yaml");
    StartDaemon();
    OwnerClient owner("group");
    EXPECT_EQ(owner.Load(ManifestPath(), MatchData()), 0);
    EXPECT_THAT(daemon_->WaitForLine("bad manifest: "),
                testing::AllOf(HasSubstr("bad.yaml:2:"), HasSubstr("bin_path")));
    owner.Start({"cam"});
    EXPECT_EQ(owner.WaitReport("cam").appState, 0U);
    EXPECT_EQ(WaitNote("cam args"), "one");
    WaitPid("cam waits");
}

TEST_F(Loading, OfMoreThanTheLoopCanWaitForStopsThere) {
    Manifests(kCam);
    const std::string comment = "# " + std::string((size_t{1} << 20) - 3, 'x') + "\n";
    for (int i = 0; i < 8; ++i) {
        Manifests(comment, "long" + std::to_string(i) + ".yaml");
    }
    StartDaemon();
    OwnerClient owner("group");
    EXPECT_EQ(owner.Load(ManifestPath(), MatchData()), 0);
    EXPECT_THAT(daemon_->WaitForLine("bad manifest: "), HasSubstr("holds more than 8 MiB of manifests; 'long7.yaml'"));
}

TEST_F(Reloading, KeepsAProcessAndUsesTheNewManifestForTheNextStart) {
    Manifests(kCam);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    EXPECT_EQ(WaitNote("cam args"), "one");
    const pid_t pid = WaitPid("cam waits");
    EXPECT_EQ(static_cast<pid_t>(owner->WaitReport("cam").pid), pid);
    Manifests(kNewCam);
    EXPECT_EQ(owner->Reload(ManifestPath(), MatchData()), 0);
    EXPECT_TRUE(Lives(pid));
    owner->Start({"cam"});
    EXPECT_EQ(static_cast<pid_t>(owner->WaitReport("cam").pid), pid);
    StartAndWait(*owner, "radar");
    owner->Restart({"cam"});
    EXPECT_EQ(owner->WaitReport("cam").appState, 1U);
    EXPECT_EQ(WaitNote("cam args"), "two");
}

TEST_F(Reloading, WithAnyErrorAnswersNotZeroAndKeepsEverything) {
    Manifests(kCam);
    StartDaemon();
    const auto owner = Owner();
    Manifests(kNewCam);
    Manifests(kBad, "bad.yaml");
    EXPECT_NE(owner->Reload(ManifestPath(), MatchData()), 0);
    EXPECT_NE(daemon_->WaitForLine("bad manifest: "), "");
    EXPECT_NE(daemon_->WaitForLine("everything stays as it was"), "");
    owner->Start({"radar"});
    EXPECT_EQ(Summary(owner->WaitReport("radar")), "kind 4 reason 7 value 0");
    owner->Start({"cam"});
    EXPECT_EQ(WaitNote("cam args"), "one");
}

TEST_F(Reloading, OfAnApplicationThatIsGoneFromTheConfigurationLetsItRunRestartAndEnd) {
    Manifests(kCam);
    StartDaemon();
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    std::filesystem::remove(ManifestPath() + "/apps.yaml");
    Manifests("{app_name: radar, bin_path: \"${APP}\"}", "radar.yaml");
    EXPECT_EQ(owner->Reload(ManifestPath(), MatchData()), 0);
    EXPECT_TRUE(Lives(pid));
    owner->Restart({"cam"});
    EXPECT_EQ(owner->WaitReport("cam").appState, 1U);
    owner->Term({"cam"});
    EXPECT_EQ(owner->WaitReport("cam").appState, 3U);
    owner->Start({"cam"});
    EXPECT_EQ(Summary(owner->WaitReport("cam")), "kind 4 reason 7 value 0");
}

}  // namespace
}  // namespace ProcmgrdTest
