// ssctl drives a real group.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "tests/tools/json_schema.h"
#include "tests/tools/ssctl_runs.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr const char* kGroup = R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: lidar, bin_path: $APP, depends: [base]}
- {app_name: nav, bin_path: $APP, depends: [lidar]}
- {app_name: view, bin_path: $APP, is_dynamic_para: true}
- {app_name: stuck, bin_path: $APP, is_reporting: true}
)";

}  // namespace

class SsctlGroup : public SsctlRuns {
protected:
    void SetUp() override {
        SsctlRuns::SetUp();
        Manifests("a.yaml", kGroup);
    }

    /// The state of an application, as the group tells it.
    std::string StateOf(const std::string& name) const {
        return Document({"state", name}).at("applications").at(0).at("state");
    }

    void ExpectRun(const SsctlResult& run, int exitCode, const std::string& output) const {
        EXPECT_EQ(run.exitCode, exitCode) << run.complaint;
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.complaint.empty(), exitCode == 0) << run.complaint;
    }
};

TEST_F(SsctlGroup, ListsAndTellsStates) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ExpectRun(Ssctl({"list"}), 0, "APPLICATION\nbase\nlidar\nnav\nstuck\n");
    ExpectRun(Ssctl({"list", "--names"}), 0, "base\nlidar\nnav\nstuck\n");
    const std::string pid = std::to_string(PidOf("base"));
    const std::string padded = std::string(pid.size() < 3 ? 3 - pid.size() : 0, ' ') + pid;
    const std::string none = std::string(padded.size() - 1, ' ') + "-";
    ExpectRun(Ssctl({"state", "nav", "base", "ghost"}), 0,
              "APPLICATION  " + std::string(padded.size() - 3, ' ') + "PID  STATE\n" +  //
                  "nav          " + none + "  NOT_RUNNING\n" +                          //
                  "base         " + padded + "  RUNNING\n" +                            //
                  "ghost        " + none + "  NOT_RUNNING\n");
}

TEST_F(SsctlGroup, StartsApplicationsThatDependOnEachOtherAndStopsThem) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ExpectRun(Ssctl({"start", "nav", "lidar"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "lidar        start   SUCCESS\n"
              "nav          start   SUCCESS\n");
    EXPECT_EQ(StateOf("nav"), "RUNNING");
    ExpectRun(Ssctl({"restart", "nav"}), 0, "APPLICATION  ACTION   RESULT\nnav          restart  SUCCESS\n");
    ExpectRun(Ssctl({"stop", "nav", "lidar"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "lidar        stop    SUCCESS\n"
              "nav          stop    SUCCESS\n");
    EXPECT_EQ(StateOf("lidar"), "NOT_RUNNING");
}

TEST_F(SsctlGroup, ChangesInOneRequestWithArgumentsAndDynamicParameters) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "lidar"}).exitCode, 0);
    ExpectRun(Ssctl({"change", "--stop", "lidar", "--start", "view@left,view@right", "--args", "view@left=--tick,50",
                     "--para", "view@left:0=front,rear", "--restart", "base", "--timeout", "8000"}),
              0,
              "APPLICATION  ACTION   RESULT\n"
              "view@left    start    SUCCESS\n"
              "view@right   start    SUCCESS\n"
              "lidar        stop     SUCCESS\n"
              "base         restart  SUCCESS\n");
    const std::string process = "/proc/" + std::to_string(PidOf("view@left"));
    const auto content = [](const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    EXPECT_THAT(content(process + "/cmdline"), HasSubstr(std::string("--tick\0"
                                                                     "50",
                                                                     9)));
    EXPECT_THAT(content(process + "/environ"), HasSubstr("PROCMGR_PARA_0=front#rear"));
    ExpectRun(Ssctl({"stop", "view"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "view@left    stop    SUCCESS\n"
              "view@right   stop    SUCCESS\n");
}

TEST_F(SsctlGroup, FailsForApplicationsThatDoNotStart) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    const SsctlResult run = Ssctl({"start", "nav", "ghost"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output,
              "APPLICATION  ACTION  RESULT\n"
              "ghost        start   INIT\n"
              "nav          start   INIT\n");
    EXPECT_THAT(run.complaint, StartsWith("ssctl: 2 of 2 operations did not succeed.\n"));
}

TEST_F(SsctlGroup, FailsInTimeForAnApplicationThatHangs) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    const auto begin = std::chrono::steady_clock::now();
    const SsctlResult run = Ssctl({"start", "stuck", "--timeout", "1000"});
    EXPECT_EQ(run.exitCode, 1) << run.complaint;
    EXPECT_THAT(run.output, HasSubstr("stuck        start   "));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, ChildProcess::kPatience);
}

TEST_F(SsctlGroup, IsRefusedWhileAnotherChangeRuns) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ChildProcess slow({Program(), "start", "stuck", "--timeout", "20000"}, environment_);
    ASSERT_NE(owner_->WaitForLine("StartNoDependsApps start end."), "");
    const SsctlResult run = Ssctl({"stop", "base"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.complaint,
              "ssctl: the group owner refused the change.\n"
              "       Another change may be running: try again later. The log of the group owner says why.\n");
    EXPECT_EQ(StateOf("base"), "RUNNING") << "queries are answered while a change runs";
    // Asked kindly, it would wait for the change.
    owner_->Signal(SIGKILL);
    EXPECT_EQ(slow.WaitForExit(), 3);
}

TEST_F(SsctlGroup, SetsSystemStatesVerifiesReloadsAndDumps) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ExpectRun(Ssctl({"set-state", "WORKING"}), 0, "The system state is WORKING (1).\n");
    EXPECT_NE(owner_->WaitForLine("SYSTEM_STATE"), "");
    ExpectRun(Ssctl({"verify", "lidar=running", "nav=terminated"}), 0,
              "The group owner took note of 2 applications.\n");
    ExpectRun(Ssctl({"dump"}), 0, "The group owner wrote what it knows to its log.\n");
    EXPECT_NE(owner_->WaitForLine("Dump Info:"), "");
    Manifests("b.yaml", "{app_name: late, bin_path: $APP}");
    ExpectRun(Ssctl({"reload"}), 0, "The group owner read its manifests again.\n");
    EXPECT_THAT(Ssctl({"list", "--names"}).output, HasSubstr("late\n"));
}

TEST_F(SsctlGroup, FollowsTheSystemStatesThatItSets) {
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner({"--resource", "grp_owner", "--events", "grp_owner_events"});
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output() << manager_->Output();
    ChildProcess follower({Program(), "events", "--count", "1", "--timeout", "60000"}, environment_);
    // Nobody says when the follower is there; so states are set until it has one.
    while (!HasEnded(follower)) {
        ASSERT_EQ(Ssctl({"set-state", "CALIBRATION"}).exitCode, 0);
    }
    EXPECT_EQ(follower.WaitForExit(), 0);
    EXPECT_EQ(follower.Output(), "CALIBRATION\n");
}

TEST_F(SsctlGroup, SaysWhatToDoWhenTheManifestsAreBad) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    Manifests("b.yaml", "{app_name: [}");
    const SsctlResult run = Ssctl({"reload"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.complaint, StartsWith("ssctl: the group owner did not reload.\n"));
    EXPECT_THAT(run.complaint, HasSubstr("'ssctl check PATH' tells"));
}

TEST_F(SsctlGroup, StopsEverything) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ASSERT_EQ(Ssctl({"start", "lidar"}).exitCode, 0);
    ExpectRun(Ssctl({"stop-all"}), 0, "Every application is stopped.\n");
    EXPECT_EQ(LeftOver().size(), 2U) << "the two daemons";
}

TEST_F(SsctlGroup, PrintsDocumentsThatTheSchemaAllows) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    std::ifstream file(SSCTL_SCHEMA_FILE);
    const JsonSchema schema(nlohmann::json::parse(file));
    const std::vector<std::vector<std::string>> commands = {{"list"},
                                                            {"state"},
                                                            {"start", "lidar"},
                                                            {"restart", "lidar"},
                                                            {"stop", "lidar"},
                                                            {"start", "ghost"},
                                                            {"verify", "nav=1"},
                                                            {"set-state", "UPGRADE"},
                                                            {"reload"},
                                                            {"dump"},
                                                            {"change", "--start", "view@a"},
                                                            {"stop-all"},
                                                            {"start", "x", "--para", "x:3=y"},
                                                            {"--resource", "nobody", "list"}};
    for (const std::vector<std::string>& command : commands) {
        const nlohmann::json document = Document(command);
        EXPECT_EQ(schema.Check(document), "") << document;
    }
}

TEST_F(SsctlGroup, ColoursOnATerminalOnlyAndNotWhenItIsNotWanted) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    environment_["TERM"] = "xterm";
    EXPECT_THAT(OnTerminal({"state", "base"}).output, HasSubstr("\x1b[32mRUNNING\x1b[0m"));
    EXPECT_THAT(Ssctl({"state", "base"}).output, testing::Not(HasSubstr("\x1b")));
    environment_["NO_COLOR"] = "1";
    EXPECT_THAT(OnTerminal({"state", "base"}).output, testing::Not(HasSubstr("\x1b")));
    environment_.erase("NO_COLOR");
    environment_["TERM"] = "dumb";
    EXPECT_THAT(OnTerminal({"state", "base"}).output, testing::Not(HasSubstr("\x1b")));
}

TEST_F(SsctlGroup, ShowsOnATerminalWhatItWaitsForAndTimesOut) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    environment_["TERM"] = "xterm";
    owner_->Signal(SIGSTOP);
    const SsctlResult run = OnTerminal({"--wait", "3000", "list"});
    owner_->Signal(SIGCONT);
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_THAT(run.output, HasSubstr("asking for the list: 0."));
    EXPECT_THAT(run.output, HasSubstr(" s of at most 3.0 s"));
    EXPECT_THAT(run.output, HasSubstr("\r\x1b[Kssctl: no answer from 'grp_owner' within 3000 ms."))
        << "the moving line is taken away";
}

TEST_F(SsctlGroup, TimesOutWhenTheOwnerHangs) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    owner_->Signal(SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    const SsctlResult run = Ssctl({"--wait", "400", "stop-all"});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(400));
    owner_->Signal(SIGCONT);
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.complaint,
              "ssctl: no answer from 'grp_owner' within 400 ms.\n"
              "       The request may still be carried out: see with 'ssctl state', and wait longer with --wait.\n");
}

TEST_F(SsctlGroup, FindsNoServiceWhenNoDaemonRuns) {
    const SsctlResult run = Ssctl({"list"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.complaint, "ssctl: no group owner serves 'grp_owner' in " + Folder() +
                                 "/run: there is no such service.\n"
                                 "       Start one with 'grpownerd --resource grp_owner', or choose another with"
                                 " --resource and --run-dir.\n");
}

TEST_F(SsctlGroup, FindsNoServiceWhenTheOwnerDied) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    owner_->Signal(SIGKILL);
    owner_->WaitForExit();
    const SsctlResult run = Ssctl({"list"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_THAT(run.complaint, HasSubstr("who offered it is gone"));
}

TEST_F(SsctlGroup, SaysAtOnceThatTheOwnerDiedWhileItWorked) {
    ASSERT_NO_FATAL_FAILURE(BootWithResource());
    ChildProcess change({Program(), "start", "stuck", "--timeout", "600000"}, environment_);
    ASSERT_NE(owner_->WaitForLine("StartNoDependsApps start end."), "");
    owner_->Signal(SIGKILL);
    owner_->WaitForExit();
    EXPECT_EQ(change.WaitForExit(), 3);
    EXPECT_THAT(change.Output(), StartsWith("ssctl: the group owner behind 'grp_owner' went away.\n"));
}

TEST_F(SsctlGroup, RefusesMistakesBeforeItLooksForAService) {
    EXPECT_EQ(Ssctl({"fly"}).exitCode, 2);
    EXPECT_EQ(Ssctl({"start", "a", "--args", "a=" + std::string(4000, 'x')}).exitCode, 2);
    EXPECT_EQ(Ssctl({"--resource", "a/b", "list"}).exitCode, 2);
    EXPECT_EQ(Ssctl({"--run-dir", "/" + std::string(200, 'x'), "list"}).exitCode, 2);
    EXPECT_EQ(Ssctl({"--version"}).exitCode, 0);
}
