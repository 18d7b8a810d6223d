// Changes of a real group: what is asked for with ssctl, and what becomes of the processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/integration/served_group.h"

using testing::HasSubstr;
using testing::Not;

class Changes : public ServedGroup {
protected:
    /// Boots `yaml` beside one base application.
    void BootWith(const std::string& yaml) {
        Manifests("a.yaml", "- {app_name: base, bin_path: $APP, is_auto_boot: true}\n" + yaml);
        ASSERT_NO_FATAL_FAILURE(BootWithResource());
    }

    /// The deaf application ignores SIGTERM from now on, not just soon.
    void WaitUntilDeaf() { ASSERT_NE(manager_->WaitForLine("deaf: deaf"), "") << manager_->Output(); }

    void EndByForce(pid_t pid) {
        kill(pid, SIGKILL);
        EXPECT_TRUE(WaitUntilGone(pid));
    }
};

TEST_F(Changes, TerminateInReverseOrderOfDependencies) {
    ASSERT_NO_FATAL_FAILURE(BootWith(R"(
- {app_name: a_bottom, bin_path: $APP}
- {app_name: b_left, bin_path: $APP, depends: [a_bottom]}
- {app_name: c_right, bin_path: $APP, depends: [a_bottom]}
- {app_name: d_top, bin_path: $APP, depends: [b_left, c_right]}
)"));
    ASSERT_EQ(Ssctl({"start", "a_bottom", "b_left", "c_right", "d_top"}).exitCode, 0);
    ExpectRun(Ssctl({"stop", "a_bottom", "b_left", "c_right", "d_top"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "a_bottom     stop    SUCCESS\n"
              "b_left       stop    SUCCESS\n"
              "c_right      stop    SUCCESS\n"
              "d_top        stop    SUCCESS\n");
    const size_t bottom = PositionOf("SWITCH_OFF", "a_bottom");
    const size_t left = PositionOf("SWITCH_OFF", "b_left");
    const size_t right = PositionOf("SWITCH_OFF", "c_right");
    const size_t top = PositionOf("SWITCH_OFF", "d_top");
    ASSERT_NE(bottom, std::string::npos);
    EXPECT_LT(top, left);
    EXPECT_LT(top, right);
    EXPECT_LT(left, bottom);
    EXPECT_LT(right, bottom);
    EXPECT_EQ(LeftOver().size(), 3U) << "the base application and the two daemons";
}

TEST_F(Changes, TellThatEachApplicationIsAboutToBeStoppedBeforeItIs) {
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: cam, bin_path: $APP}\n"));
    ASSERT_EQ(Ssctl({"start", "cam"}).exitCode, 0);
    ASSERT_EQ(Ssctl({"stop", "cam"}).exitCode, 0);
    EXPECT_LT(PositionOf("ACTIVELY_EXIT", "cam"), PositionOf("SWITCH_OFF", "cam"));
}

TEST_F(Changes, TerminateATemplateByItsNameAndWithItAllOfItsInstances) {
    ASSERT_NO_FATAL_FAILURE(BootWith(R"(
- {app_name: camera_view, bin_path: $APP, is_dynamic_para: true, depends: [base]}
- {app_name: camera, bin_path: $APP}
)"));
    ASSERT_EQ(Ssctl({"start", "camera", "camera_view@a", "camera_view@b", "camera_view@c"}).exitCode, 0);
    std::vector<pid_t> instances;
    for (const char* name : {"camera_view@a", "camera_view@b", "camera_view@c"}) {
        instances.push_back(PidNow(name));
        EXPECT_TRUE(IsAlive(instances.back()));
    }
    const pid_t camera = PidNow("camera");
    ExpectRun(Ssctl({"stop", "camera_view"}), 0,
              "APPLICATION    ACTION  RESULT\n"
              "camera_view@a  stop    SUCCESS\n"
              "camera_view@b  stop    SUCCESS\n"
              "camera_view@c  stop    SUCCESS\n");
    for (const pid_t instance : instances) {
        EXPECT_FALSE(IsAlive(instance));
    }
    EXPECT_TRUE(IsAlive(camera)) << "no instance, although its name begins alike";
    EXPECT_EQ(Ssctl({"list", "--names"}).output, "base\ncamera\n");
}

TEST_F(Changes, RestartGivesEachApplicationAResultOfItsOwn) {
    const Gate gate(Folder() + "/gate");
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: waiting, " + ReadyBehind(gate) + "}\n" + "- {app_name: running, bin_path: $APP}\n"));
    ASSERT_EQ(Ssctl({"start", "running"}).exitCode, 0);
    ExpectRun(Ssctl({"start", "waiting", "--timeout", "500", "--wait", "60000"}), 1,
              "APPLICATION  ACTION  RESULT\n"
              "waiting      start   PROCESSING\n");
    const pid_t before = PidNow("running");
    ExpectRun(Ssctl({"restart", "ghost", "running", "waiting", "--timeout", "5000"}), 1,
              "APPLICATION  ACTION   RESULT\n"
              "ghost        restart  RESTART_FAILED\n"
              "running      restart  SUCCESS\n"
              "waiting      restart  RESTART_FAILED\n");
    EXPECT_NE(PidNow("running"), before);
    EXPECT_FALSE(IsAlive(before));
    EXPECT_EQ(StateOf("running"), "RUNNING");
}

TEST_F(Changes, RestartTakesTheReportOfAWaitingApplicationForItsSuccess) {
    const Gate gate(Folder() + "/gate");
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: waiting, " + ReadyBehind(gate) + "}\n"));
    EXPECT_EQ(Ssctl({"start", "waiting", "--timeout", "500", "--wait", "60000"}).exitCode, 1);
    const auto restart = Begin({"restart", "ghost", "waiting", "--timeout", "50000"});
    ASSERT_NE(owner_->WaitForLine("RestartApp waiting,  app in waitready, skip send cmd to pm"), "");
    gate.Open();
    EXPECT_EQ(restart->WaitForExit(), 1);
    EXPECT_THAT(restart->Output(), HasSubstr("APPLICATION  ACTION   RESULT\n"
                                             "ghost        restart  RESTART_FAILED\n"
                                             "waiting      restart  SUCCESS\n"));
    EXPECT_EQ(StateOf("waiting"), "RUNNING");
}

TEST_F(Changes, LeaveAloneAnApplicationThatIgnoresSigtermAndMayNotBeForced) {
    const Gate never(Folder() + "/never");
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: deaf, term_time_out: 100, is_force_term: false, " + Deaf(never) + "}\n"));
    ASSERT_EQ(Ssctl({"start", "deaf"}).exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(WaitUntilDeaf());
    const pid_t deaf = PidNow("deaf");
    ExpectRun(Ssctl({"stop", "deaf"}), 1,
              "APPLICATION  ACTION  RESULT\n"
              "deaf         stop    TERM_FAILED\n");
    EXPECT_NE(owner_->WaitForLine("TerminatingApplicationState appName:deaf "
                                  "ReportRunningAbnormalTermTimeoutFromProcMgr"),
              "");
    EXPECT_TRUE(IsAlive(deaf));
    EXPECT_EQ(StateOf("deaf"), "RUNNING");
    EXPECT_EQ(PidNow("deaf"), deaf);
    EndByForce(deaf);
}

TEST_F(Changes, EndByForceAnApplicationThatIgnoresSigtermAndMayBeForced) {
    const Gate never(Folder() + "/never");
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: deaf, term_time_out: 100, is_force_term: true, " + Deaf(never) + "}\n"));
    ASSERT_EQ(Ssctl({"start", "deaf"}).exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(WaitUntilDeaf());
    const pid_t deaf = PidNow("deaf");
    ExpectRun(Ssctl({"stop", "deaf"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "deaf         stop    SUCCESS\n");
    EXPECT_FALSE(IsAlive(deaf));
    EXPECT_EQ(StateOf("deaf"), "NOT_RUNNING");
}

TEST_F(Changes, StopAllGivesUpOverAnApplicationThatNeverEndsAndLeavesTheBaseApplicationsAlone) {
    const Gate never(Folder() + "/never");
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: deaf, term_time_out: 100, is_force_term: false, " + Deaf(never) +
                                     "}\n- {app_name: tame, bin_path: $APP}\n"));
    ASSERT_EQ(Ssctl({"start", "deaf", "tame"}).exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(WaitUntilDeaf());
    const pid_t base = PidNow("base");
    const pid_t deaf = PidNow("deaf");
    EXPECT_EQ(Ssctl({"stop-all"}).exitCode, 1) << "an answer, not a time-out";
    for (const char* loop : {"1", "2", "3"}) {
        EXPECT_NE(owner_->WaitForLine(std::string("StopAllApp drivingAppTermList ") + loop +
                                      " loop: deaf term failed state: 1"),
                  "");
    }
    EXPECT_NE(owner_->WaitForLine("StopAllApp term driving app end. result: 0"), "");
    EXPECT_THAT(owner_->Output(), Not(HasSubstr("StopAllApp term base app begin.")));
    EXPECT_EQ(CountOf("ACTIVELY_EXIT", "base"), 0);
    EXPECT_EQ(PidNow("base"), base);
    EXPECT_EQ(StateOf("tame"), "NOT_RUNNING");
    EndByForce(deaf);
    EXPECT_EQ(Ssctl({"stop-all"}).exitCode, 0) << "once nothing is in the way";
    EXPECT_EQ(LeftOver().size(), 2U) << "the two daemons";
}

TEST_F(Changes, OfTwoAtOnceTheSecondIsRefusedAndTheNextOneIsDone) {
    const Gate gate(Folder() + "/gate");
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: slow, " + ReadyBehind(gate) + "}\n- {app_name: cam, bin_path: $APP}\n"));
    const auto first = Begin({"start", "slow", "--timeout", "50000"});
    ASSERT_NE(owner_->WaitForLine("StartNoDependsApps start end."), "");
    const SsctlResult second = Ssctl({"start", "cam"});
    ExpectRun(second, 1, "");
    EXPECT_THAT(second.complaint, HasSubstr("ssctl: the group owner refused the change."));
    EXPECT_NE(owner_->WaitForLine("ChangeApp failed, because it is in transition."), "");
    EXPECT_EQ(StateOf("cam"), "NOT_RUNNING");
    gate.Open();
    EXPECT_EQ(first->WaitForExit(), 0) << first->Output();
    EXPECT_EQ(StateOf("slow"), "RUNNING");
    EXPECT_EQ(Ssctl({"start", "cam"}).exitCode, 0);
    EXPECT_EQ(StateOf("cam"), "RUNNING");
}

TEST_F(Changes, OfManyAtOnceAreEachDoneOrRefusedAndLeaveTheGroupReadyForTheNext) {
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: cam, bin_path: $APP}\n- {app_name: lidar, bin_path: $APP, depends: [cam]}\n"));
    std::vector<std::unique_ptr<ChildProcess>> requests;
    for (int round = 0; round < 5; ++round) {
        requests.push_back(Begin({"start", "cam", "lidar"}));
        requests.push_back(Begin({"stop", "cam", "lidar"}));
    }
    int done = 0;
    for (const auto& request : requests) {
        const bool isDone = request->WaitForExit() == 0;
        done += isDone ? 1 : 0;
        EXPECT_TRUE(isDone || request->Output().find("refused the change") != std::string::npos) << request->Output();
    }
    EXPECT_GE(done, 1);
    ExpectRun(Ssctl({"start", "cam", "lidar"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "cam          start   SUCCESS\n"
              "lidar        start   SUCCESS\n");
    EXPECT_EQ(LeftOver().size(), 5U) << "three applications, none twice, and the two daemons";
}

TEST_F(Changes, HandArgumentsAndDynamicParametersToTheProcess) {
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: view, bin_path: $APP, arguments: [--tick, \"70\"], is_dynamic_para: true}\n"));
    ASSERT_EQ(Ssctl({"start", "view@left", "view@right", "--args", "view@left=--tick,50", "--para",
                     "view@left:0=front,rear", "--para", "view@left:2=wide"})
                  .exitCode,
              0);
    const pid_t left = PidNow("view@left");
    EXPECT_THAT(CommandLineOf(left), testing::EndsWith(" --tick 50 "));
    EXPECT_THAT(EnvironmentOf(left), HasSubstr("PROC_NAME=view@left "));
    EXPECT_THAT(EnvironmentOf(left), HasSubstr("PROCMGR_PARA_0=front#rear "));
    EXPECT_THAT(EnvironmentOf(left), HasSubstr("PROCMGR_PARA_2=wide "));
    EXPECT_THAT(EnvironmentOf(left), Not(HasSubstr("PROCMGR_PARA_1=")));
    const pid_t right = PidNow("view@right");
    EXPECT_THAT(EnvironmentOf(right), HasSubstr("PROC_NAME=view@right "));
    EXPECT_THAT(EnvironmentOf(right), Not(HasSubstr("PROCMGR_PARA_")));
}

TEST_F(Changes, RestartWithOtherArgumentsAndDynamicParametersHandsThemToTheNewProcess) {
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: view, bin_path: $APP, is_dynamic_para: true}\n"));
    ASSERT_EQ(Ssctl({"start", "view@left", "--args", "view@left=--tick,50", "--para", "view@left:0=front"}).exitCode,
              0);
    const pid_t before = PidNow("view@left");
    ASSERT_EQ(Ssctl({"restart", "view@left", "--args", "view@left=--tick,60", "--para", "view@left:0=rear"}).exitCode,
              0);
    const pid_t after = PidNow("view@left");
    EXPECT_NE(after, before);
    EXPECT_THAT(CommandLineOf(after), testing::EndsWith(" --tick 60 "));
    EXPECT_THAT(EnvironmentOf(after), HasSubstr("PROCMGR_PARA_0=rear "));
}

TEST_F(Changes, RestartByPolicyKeepsTheArgumentsOfTheStart) {
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: cam, bin_path: $APP, restart: on-failure}\n"));
    ASSERT_EQ(Ssctl({"start", "cam", "--args", "cam=--tick,50"}).exitCode, 0);
    kill(PidNow("cam"), SIGKILL);
    ASSERT_NE(owner_->WaitForLine("] ABNORMAL_EXIT"), "");
    ASSERT_NE(owner_->WaitForLine("] SWITCH_ON"), "");
    EXPECT_THAT(CommandLineOf(PidNow("cam")), testing::EndsWith(" --tick 50 "));
}

TEST_F(Changes, RestartByPolicyEndsWithTheSixthFailureWithinTheWindow) {
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: crasher, bin_path: /bin/sh, arguments: [-c, \"exit 1\"], restart: on-failure}\n"));
    EXPECT_EQ(Ssctl({"start", "crasher"}).exitCode, 0) << "it did start";
    for (int failure = 1; failure <= 6; ++failure) {
        ASSERT_NE(owner_->WaitForLine("] SWITCH_ON            crasher "), "") << failure;
        ASSERT_NE(owner_->WaitForLine("] ABNORMAL_EXIT        crasher "), "") << failure;
    }
    EXPECT_TRUE(
        owner_->WaitForOutput("Cannot Restart appName:crasher , because restart count(5) is more than 5 within "));
    EXPECT_TRUE(owner_->WaitForOutput("TerminatedApplicationState Application:crasher cannot restart."));
    EXPECT_EQ(StateOf("crasher"), "NOT_RUNNING");
    ASSERT_EQ(Ssctl({"set-state", "WORKING"}).exitCode, 0);
    ASSERT_NE(owner_->WaitForLine("] SYSTEM_STATE"), "");
    EXPECT_EQ(CountOf("SWITCH_ON", "crasher"), 6) << "the start and five restarts";
    EXPECT_EQ(StateOf("base"), "RUNNING");
}

TEST_F(Changes, RestartOnRequestIsRefusedTheSixthTimeWithinTheWindow) {
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: cam, bin_path: $APP}\n"));
    ASSERT_EQ(Ssctl({"start", "cam"}).exitCode, 0);
    for (int restart = 1; restart <= 5; ++restart) {
        ASSERT_EQ(Ssctl({"restart", "cam"}).exitCode, 0) << restart;
    }
    const pid_t fifth = PidNow("cam");
    ExpectRun(Ssctl({"restart", "cam"}), 1,
              "APPLICATION  ACTION   RESULT\n"
              "cam          restart  RESTART_FAILED\n");
    EXPECT_TRUE(owner_->WaitForOutput("RunningApplicationState Application:cam cannot restart."));
    EXPECT_EQ(PidNow("cam"), fifth) << "it runs on";
    EXPECT_EQ(Ssctl({"restart", "cam"}).exitCode, 0) << "the refusal closed the window";
}

TEST_F(Changes, EndAnApplicationThatIsStillGettingReady) {
    const Gate never(Folder() + "/never");
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: waiting, " + ReadyBehind(never) + "}\n"));
    EXPECT_EQ(Ssctl({"start", "waiting", "--timeout", "500", "--wait", "60000"}).exitCode, 1);
    EXPECT_EQ(LeftOver().size(), 4U);
    ExpectRun(Ssctl({"stop", "waiting"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "waiting      stop    SUCCESS\n");
    EXPECT_EQ(LeftOver().size(), 3U) << "the base application and the two daemons";
}

TEST_F(Changes, WhoseTerminationTakesTooLongSkipTheStartsAndHearOfTheEndLater) {
    const Gate never(Folder() + "/never");
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: deaf, term_time_out: 600000, " + Deaf(never) +
                                     "}\n- {app_name: cam, bin_path: $APP}\n"));
    ASSERT_EQ(Ssctl({"start", "deaf"}).exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(WaitUntilDeaf());
    const pid_t deaf = PidNow("deaf");
    const SsctlResult change =
        Ssctl({"change", "--stop", "deaf", "--start", "cam", "--timeout", "500", "--wait", "60000"});
    EXPECT_EQ(change.exitCode, 1);
    EXPECT_THAT(change.output, HasSubstr("deaf         stop    TERM_FAILED\n"));
    EXPECT_THAT(change.output, Not(HasSubstr("SUCCESS")));
    EXPECT_TRUE(owner_->WaitForOutput("ChangeApp failed. because TermApps failed time-out."));
    EXPECT_EQ(StateOf("cam"), "NOT_RUNNING");
    EndByForce(deaf);
    EXPECT_NE(PositionOf("SWITCH_OFF", "deaf"), std::string::npos);
    ExpectRun(Ssctl({"start", "deaf", "cam"}), 0,
              "APPLICATION  ACTION  RESULT\n"
              "cam          start   SUCCESS\n"
              "deaf         start   SUCCESS\n");
    EndByForce(PidNow("deaf"));
}

TEST_F(Changes, StartBehindAnApplicationThatFailsIsNotTried) {
    ASSERT_NO_FATAL_FAILURE(
        BootWith("- {app_name: broken, bin_path: /no/such/program}\n"
                 "- {app_name: user, bin_path: $APP, depends: [broken]}\n"));
    ExpectRun(Ssctl({"start", "broken", "user", "base"}), 1,
              "APPLICATION  ACTION  RESULT\n"
              "base         start   SUCCESS\n"
              "broken       start   START_FAILED\n"
              "user         start   INIT\n");
    EXPECT_TRUE(owner_->WaitForOutput("noDependsList is empty, and none of already start apps are starting."));
    EXPECT_EQ(LeftOver().size(), 3U) << "the base application and the two daemons";
}

TEST_F(Changes, StartWhatIsAskedForAlthoughATerminationOfTheSameRequestFailedInTime) {
    const Gate never(Folder() + "/never");
    ASSERT_NO_FATAL_FAILURE(BootWith("- {app_name: deaf, term_time_out: 100, is_force_term: false, " + Deaf(never) +
                                     "}\n- {app_name: cam, bin_path: $APP}\n"));
    ASSERT_EQ(Ssctl({"start", "deaf"}).exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(WaitUntilDeaf());
    ExpectRun(Ssctl({"change", "--stop", "deaf", "--start", "cam", "--restart", "base"}), 1,
              "APPLICATION  ACTION   RESULT\n"
              "cam          start    SUCCESS\n"
              "deaf         stop     TERM_FAILED\n"
              "base         restart  SUCCESS\n");
    EndByForce(PidNow("deaf"));
}
