#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RestartPhase : public ManagerTest {};

TEST_F(RestartPhase, SendsOneRequestForTheWholeListAndLogsEachStep) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    BringUp({"a", "b"});
    EXPECT_EQ(Change({{}, {}, {App("b", {"-v"}, {{1, {"x"}}}), App("a")}}), "true a=SUCCESS b=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 2#a#0#0#b#1#-v#1#1#1#x#"));
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=0,start=0,restart=2,timeout=5000 ms)",
                    "INFO ApplicationManager: ChangeAppState restart begin.", "INFO RestartApps done. (return=0)",
                    "INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=a,status=SUCCESS.",
                    "INFO ApplicationManager: ReportStartAppResult: appName=b,status=SUCCESS.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=b,status=SUCCESS.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end."));
    EXPECT_THAT(manager_.FindApplicationSilently("b")->GetArguments(), ElementsAre("-v"));
}

TEST_F(RestartPhase, NeverStartedApplicationIsStarted) {
    Load({Manifest("a")});
    EXPECT_EQ(Restart({"a"}), "true a=SUCCESS");
    EXPECT_EQ(StateOf("a"), AppStateType::RUNNING_STATE);
}

TEST_F(RestartPhase, IsNotSettledByTheLateOfferOfAReportFromBeforeIt) {
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.Ignore("RESTART", "a");
    constexpr uint64_t kReportOfTheStart = 1;
    processManager_.Then([this] {
        manager_.ReportAppResult("a", AppChangeState::SUCCESS, AppStateType::WAIT_READY_STATE, kReportOfTheStart);
    });
    EXPECT_EQ(Restart({"a"}), "false a=RESTART_FAILED");
}

TEST_F(RestartPhase, UnknownNameFailsAtOnceAndTheNextChangeIsAccepted) {
    Load({Manifest("a")});
    EXPECT_EQ(Restart({"ghost"}), "false ghost=RESTART_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=0,start=0,restart=1,timeout=5000 ms)",
                    "INFO ApplicationManager: ChangeAppState restart begin.",
                    "ERROR RestartApp ghost failed. because restart elem not in baseApplication and "
                    "drivingApplication!",
                    "INFO ApplicationManager: ReportRestartAppResult appName=ghost,status=RESTART_FAILED.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end.",
                    "ERROR Restart app failed. (name=ghost,result=RESTART_FAILED)"));
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
}

TEST_F(RestartPhase, ListWithAnUnknownARunningAndAWaitingApplication) {
    Load({Manifest("run"), Manifest("wait")});
    BringUp({"run"});
    processManager_.Ignore("START", "wait");
    Start({"wait"});
    Forget();
    processManager_.ClearRequests();
    processManager_.Then([this] { processManager_.Tell("wait", Report::RUNNING_NORMAL_START, 9); });
    EXPECT_EQ(Restart({"ghost", "run", "wait"}), "false ghost=RESTART_FAILED run=SUCCESS wait=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#run#0#0#"));
    EXPECT_THAT(ManagerLines(), Contains("WARN RestartApp wait,  app in waitready, skip send cmd to pm"));
}

TEST_F(RestartPhase, ApplicationThatIsBeingTerminatedCannotBeRestarted) {
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.Ignore("TERM", "a");
    Term({"a"});
    Forget();
    EXPECT_EQ(Restart({"a"}), "false a=RESTART_FAILED");
    EXPECT_THAT(ManagerLines(), Contains("WARN RestartApp a failed. because cannot restart in this state!"));
}

TEST_F(RestartPhase, SecondEntryForANameFindsItWaiting) {
    Load({Manifest("a")});
    BringUp({"a"});
    EXPECT_EQ(Change({{}, {}, {App("a", {"1"}), App("a", {"2"})}}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#a#1#1#0#"));
}

TEST_F(RestartPhase, RestartReportedAsAFailedStartIsAnsweredAsAFailedRestart) {
    Load({Manifest("a"), Manifest("b")});
    BringUp({"a", "b"});
    processManager_.Answer("RESTART", "a", Report::TERMINATED_ABNORMAL_EXIT, 5);
    processManager_.Answer("RESTART", "b", Report::TERMINATED_ABNORMAL_EXIT, 1);
    EXPECT_EQ(Restart({"a", "b"}), "false a=RESTART_FAILED b=START_FAILED_BY_EIO");
}

TEST_F(RestartPhase, FailureOfARestartMayBeFollowedByOneOfThePolicy) {
    Load({Manifest("a").Restart("on-failure")});
    BringUp({"a"});
    processManager_.Answer("RESTART", "a", Report::TERMINATED_ABNORMAL_EXIT, 5);
    EXPECT_EQ(Restart({"a"}), "false a=RESTART_FAILED");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#a#0#0#", "RESTART 1#a#0#0#"));
}

TEST_F(RestartPhase, TimeoutFailsWhoIsLeft) {
    Load({Manifest("a"), Manifest("b")});
    BringUp({"a", "b"});
    processManager_.Ignore("RESTART", "a");
    EXPECT_EQ(Restart({"a", "b"}, 1000), "false a=RESTART_FAILED b=SUCCESS");
    EXPECT_EQ(clocks_.Elapsed().count(), 900);
    EXPECT_EQ(StateOf("a"), AppStateType::WAIT_READY_STATE);
    const Strings lines = ManagerLines();
    ASSERT_GE(lines.size(), 5U);
    EXPECT_THAT(Strings(lines.end() - 5, lines.end()),
                ElementsAre("ERROR RestartApps failed time-out", "INFO Restart appName=a state=INIT",
                            "WARN mark a to RESTART_FAILED", "INFO Restart appName=b state=SUCCESS",
                            "ERROR Restart app failed. (name=a,result=RESTART_FAILED)"));
}

TEST_F(RestartPhase, SecondResultIsLoggedAsDouble) {
    Load({Manifest("a")});
    BringUp({"a"});
    Restart({"a"});
    Forget();
    manager_.ReportRestartAppResult("a", AppChangeState::START_FAILED);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: ReportRestartAppResult appName=a,status=START_FAILED.",
                            "WARN ApplicationManager ReportRestartAppResult appName=a is already feedback(now result "
                            "state=SUCCESS), double report? please check."));
}

TEST_F(RestartPhase, FailedSendFailsAtOnceAndTheNextRestartIsSentAgain) {
    Load({Manifest("run"), Manifest("down")});
    BringUp({"run"});
    processManager_.FailSends(1, 1);
    EXPECT_EQ(Restart({"run", "down"}), "false down=RESTART_FAILED run=RESTART_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_THAT(ManagerLines(), Contains("INFO RestartApps done. (return=15795459)"));
    EXPECT_EQ(StateOf("run"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(StateOf("down"), AppStateType::INIT_STATE);
    processManager_.ClearRequests();
    EXPECT_EQ(Restart({"run", "down"}), "true down=SUCCESS run=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 2#run#0#0#down#0#0#"));
}

class PolicyRestart : public ManagerTest {};

TEST_F(PolicyRestart, SendsARestartWithTheLastArgumentsAndWaitsForNothing) {
    Load({Manifest("a").Restart("on-failure")});
    Change({{}, {App("a", {"-v"}, {{1, {"x"}}})}, {}});
    processManager_.ClearRequests();
    Forget();
    processManager_.Tell("a", Report::TERMINATED_ABNORMAL_EXIT, 0, 5);
    ASSERT_TRUE(processManager_.Step());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#a#1#-v#0#"));
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: restart a", "INFO RestartApps add a to restartAppList",
                            "INFO ApplicationManager: RestartApps emAgent RestartApp begin.",
                            "INFO ApplicationManager: RestartApps emAgent RestartApp end. (return=0)"));
    ASSERT_TRUE(processManager_.Step());
    EXPECT_EQ(StateOf("a"), AppStateType::RUNNING_STATE);
}

TEST_F(PolicyRestart, OtherPoliciesDoNotRestart) {
    Load({Manifest("a").Restart("on-until-succeed")});
    BringUp({"a"});
    manager_.CheckAndRestartApp("a");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: don't need restart a. (restart=on-until-succeed)"));
}

TEST_F(PolicyRestart, UnknownNameIsSkipped) {
    Load({Manifest("a")});
    manager_.CheckAndRestartApp("ghost");
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: FindApplication ghost (no application found).",
                            "WARN ApplicationManager: SetTermedState ghost (no application found, skip it)."));
}

TEST_F(PolicyRestart, InstanceOfATemplateIsRemovedAndNotRestarted) {
    Load({Manifest("cam").Template().Restart("on-forever")});
    BringUp({"cam@front"});
    processManager_.Tell("cam@front", Report::TERMINATED_ABNORMAL_EXIT, 0, 5);
    ASSERT_TRUE(processManager_.Step());
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_EQ(manager_.FindApplicationSilently("cam@front"), nullptr);
    EXPECT_THAT(ManagerLines(),
                Contains("WARN ApplicationManager: SetTermedState cam@front (no application found, skip it)."));
}

TEST_F(PolicyRestart, SixthWithinTheWindowIsRefused) {
    Load({Manifest("a").Restart("on-failure")});
    BringUp({"a"});
    for (int restarts = 0; restarts < 6; ++restarts) {
        processManager_.Tell("a", Report::TERMINATED_ABNORMAL_EXIT, 0, 5);
        while (processManager_.Step()) {
        }
    }
    EXPECT_EQ(processManager_.Requests().size(), 5U);
    EXPECT_EQ(StateOf("a"), AppStateType::TERMINATED_STATE);
}

TEST_F(PolicyRestart, FailedSendTakesTheApplicationBackToItsState) {
    Load({Manifest("a").Restart("on-forever")});
    BringUp({"a"});
    processManager_.FailSends(1, 1);
    processManager_.Tell("a", Report::TERMINATED_ABNORMAL_EXIT, 0, 5);
    ASSERT_TRUE(processManager_.Step());
    EXPECT_EQ(StateOf("a"), AppStateType::TERMINATED_STATE);
    EXPECT_THAT(ManagerLines(),
                Contains("INFO ApplicationManager: RestartApps emAgent RestartApp end. (return=15795459)"));
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
}

}  // namespace
}  // namespace ProcMgr
