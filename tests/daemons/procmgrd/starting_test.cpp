#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Starting : public DaemonTest {};

constexpr const char* kApps = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [args=own, env=PROC_NAME]}
- {app_name: lidar, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_dynamic_para: true,
   arguments: [env=PROC_NAME, env=PROCMGR_APP_NAME, env=PROCMGR_PARA_3, env=PROCMGR_PARA_NEG2, env=PROCMGR_RUN_DIR]}
- {app_name: missing, bin_path: "${DIR}/no-such-program"}
- {app_name: text, bin_path: "${DIR}/text"}
- {app_name: picky, bin_path: "${APP}", res_group_name: no-such-group, must_hold: [res_group_name]}
)";

TEST_F(Starting, IsReportedAsNormalStartWithThePidOfTheProcess) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    const AppStateInfo report = owner->WaitReport("cam");
    EXPECT_EQ(Summary(report), "kind 0 reason 0 value 0");
    EXPECT_EQ(static_cast<pid_t>(report.pid), WaitPid("cam waits"));
}

TEST_F(Starting, RunsTheManifestsOwnArgumentsWhenTheListIsEmpty) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    EXPECT_EQ(WaitNote("cam args"), "own");
}

TEST_F(Starting, RunsTheArgumentsOfTheRequestWhenItHasSome) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->StartWith({"cam", {"args=asked", "args="}, {}});
    EXPECT_EQ(WaitNote("cam"), "args asked");
    EXPECT_EQ(WaitNote("cam"), "args ");
    WaitPid("cam waits");
}

TEST_F(Starting, PassesTheInstanceNameAndTheDynamicParametersToTheProcess) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->StartWith({"lidar@front", {}, {{3, {"left", "right"}}, {-2, {"low"}}}});
    EXPECT_EQ(owner->WaitReport("lidar@front").appState, 0U);
    EXPECT_EQ(WaitNote("lidar@front env"), "PROC_NAME=lidar@front");
    EXPECT_EQ(WaitNote("lidar@front env"), "PROCMGR_APP_NAME=lidar@front");
    EXPECT_EQ(WaitNote("lidar@front env"), "PROCMGR_PARA_3=left#right");
    EXPECT_EQ(WaitNote("lidar@front env"), "PROCMGR_PARA_NEG2=low");
    EXPECT_EQ(WaitNote("lidar@front env"), "PROCMGR_RUN_DIR=" + RunDir());
}

TEST_F(Starting, OfSeveralInstancesRunsAProcessForEach) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    const pid_t front = StartAndWait(*owner, "lidar@front");
    const pid_t rear = StartAndWait(*owner, "lidar@rear");
    EXPECT_NE(front, rear);
    EXPECT_TRUE(Lives(front));
}

TEST_F(Starting, OfAMissingProgramIsAnAbnormalExitWithReasonNotFound) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"missing"});
    EXPECT_EQ(Summary(owner->WaitReport("missing")), "kind 4 reason 2 value " + std::to_string(ENOENT));
    EXPECT_THAT(owner->Query({"missing"}), ElementsAre(testing::Pair("missing", 1U)));
}

TEST_F(Starting, OfAFileThatMayNotBeExecutedHasReasonNotPermitted) {
    Manifests(kApps);
    std::ofstream(Folder() + "/text") << "no program";
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"text"});
    EXPECT_EQ(Summary(owner->WaitReport("text")), "kind 4 reason 3 value " + std::to_string(EACCES));
}

TEST_F(Starting, OfAFileThatIsNoProgramHasItsOwnReason) {
    Manifests(kApps);
    std::ofstream(Folder() + "/text") << "no program";
    std::filesystem::permissions(Folder() + "/text", std::filesystem::perms::all);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"text"});
    EXPECT_EQ(Summary(owner->WaitReport("text")), "kind 4 reason 11 value " + std::to_string(ENOEXEC));
}

TEST_F(Starting, WithoutAnAttributeThatMustHoldIsAnAbnormalExit) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"picky"});
    EXPECT_EQ(Summary(owner->WaitReport("picky")), "kind 4 reason 6 value " + std::to_string(ENOENT));
}

TEST_F(Starting, OfAnUnknownNameIsAnAbnormalExitWithReasonUnknown) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"ghost"});
    EXPECT_EQ(Summary(owner->WaitReport("ghost")), "kind 4 reason 7 value 0");
    EXPECT_THAT(daemon_->WaitForLine("application ghost is unknown"), HasSubstr("owner group"));
    owner->Restart({"ghost@one"});
    EXPECT_EQ(Summary(owner->WaitReport("ghost@one")), "kind 4 reason 7 value 0");
}

TEST_F(Starting, ASecondTimeIsAnsweredWithThePidOfTheOneThatRuns) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "cam");
    owner->Start({"cam", "cam"});
    for (int i = 0; i < 2; ++i) {
        const AppStateInfo again = owner->WaitReport("cam");
        EXPECT_EQ(Summary(again), "kind 0 reason 0 value 0");
        EXPECT_EQ(static_cast<pid_t>(again.pid), pid);
    }
    EXPECT_THAT(Survivors(), ElementsAre(pid));
}

TEST_F(Starting, TwiceInOneRequestMakesOneProcess) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam", "cam"});
    const AppStateInfo report = owner->WaitReport("cam");
    WaitPid("cam waits");
    EXPECT_THAT(Survivors(), ElementsAre(static_cast<pid_t>(report.pid)));
}

TEST_F(Starting, AndRestartInARowMakesOneProcessAndAnswersBoth) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    owner->Restart({"cam"});
    EXPECT_EQ(owner->WaitReport("cam").appState, 0U);
    const AppStateInfo restarted = owner->WaitReport("cam");
    EXPECT_EQ(restarted.appState, 1U);
    EXPECT_THAT(owner->History(), ElementsAre("cam 0", "cam 1"));
    EXPECT_THAT(Survivors(), ElementsAre(static_cast<pid_t>(restarted.pid)));
}

TEST_F(Starting, AndTermInARowLeavesNothingAndAnswersBoth) {
    Manifests(kApps);
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"cam"});
    owner->Term({"cam"});
    EXPECT_EQ(owner->WaitReport("cam").appState, 0U);
    EXPECT_EQ(Summary(owner->WaitReport("cam")), "kind 3 reason 0 value 0");
    EXPECT_TRUE(Survivors().empty());
}

TEST_F(Starting, OfASharedObjectRunsItInsideItsHost) {
    Manifests("{app_name: object, is_so: true, so_name: \"${OBJECT}\", env_argv: {TEST_NOTES: \"${DIR}/notes\"}}");
    StartDaemon();
    const auto owner = Owner();
    owner->Start({"object"});
    const AppStateInfo report = owner->WaitReport("object");
    EXPECT_EQ(Summary(report), "kind 0 reason 0 value 0");
    EXPECT_EQ(Summary(owner->WaitReport("object")), "kind 3 reason 0 value 0");
}

TEST_F(Starting, OfManyAtOnceReportsEachOfThem) {
    std::string yaml;
    std::vector<std::string> names;
    for (int i = 0; i < 60; ++i) {
        names.push_back("wide" + std::to_string(i));
        yaml += "- {app_name: " + names.back() + ", bin_path: /bin/sleep, arguments: [\"1000\"]}\n";
    }
    Manifests(yaml);
    StartDaemon();
    const auto owner = Owner();
    owner->Start(names);
    for (const std::string& name : names) {
        EXPECT_EQ(owner->WaitReport(name).appState, 0U);
    }
    owner->Term(names);
    for (const std::string& name : names) {
        EXPECT_EQ(owner->WaitReport(name).appState, 3U);
    }
    EXPECT_TRUE(Survivors().empty());
}

TEST_F(Starting, WritesTheOutputOfAnApplicationToItsFile) {
    Manifests(
        "{app_name: talker, bin_path: \"${APP}\", arguments: [print=hello], "
        "env_argv: {TEST_NOTES: \"${DIR}/notes\"}}");
    StartDaemon({"--log-dir", Folder() + "/logs"});
    const auto owner = Owner();
    StartAndWait(*owner, "talker");
    owner->Term({"talker"});
    owner->WaitReport("talker");
    StopDaemon();
    std::ifstream log(Folder() + "/logs/group/talker.log");
    std::string line;
    std::getline(log, line);
    EXPECT_THAT(line, HasSubstr("hello"));
}

TEST_F(Starting, WritesNothingThroughALinkInPlaceOfTheOwnersLogFolder) {
    Manifests(
        "{app_name: talker, bin_path: \"${APP}\", arguments: [print=hello], "
        "env_argv: {TEST_NOTES: \"${DIR}/notes\"}}");
    std::filesystem::create_directories(Folder() + "/logs");
    std::filesystem::create_directories(Folder() + "/elsewhere");
    std::filesystem::create_directory_symlink(Folder() + "/elsewhere", Folder() + "/logs/group");
    StartDaemon({"--log-dir", Folder() + "/logs"});
    const auto owner = Owner();
    StartAndWait(*owner, "talker");
    EXPECT_NE(daemon_->WaitForLine("goes to the daemon's own: the folder " + Folder() + "/logs/group: Not a directory"),
              "");
    EXPECT_NE(daemon_->WaitForLine("talker: hello"), "");
    EXPECT_TRUE(std::filesystem::is_empty(Folder() + "/elsewhere"));
}

TEST_F(Starting, WritesTheOutputBehindTheNameToTheDaemonsOwnOutput) {
    Manifests(
        "{app_name: talker, bin_path: \"${APP}\", arguments: [print=hello], "
        "env_argv: {TEST_NOTES: \"${DIR}/notes\"}}");
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "talker");
    EXPECT_NE(daemon_->WaitForLine("talker: hello"), "");
}

}  // namespace
}  // namespace ProcmgrdTest
