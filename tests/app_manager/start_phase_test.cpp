#include "platform/include/parse_and_depend.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

const std::string kBlocked = "WARN noDependsList is empty, and none of already start apps are starting.";

class StartPhase : public ManagerTest {
protected:
    /// Leaves `name` waiting for its readiness.
    void LeaveWaitReady(const std::string& name) {
        processManager_.Ignore("START", name);
        ASSERT_EQ(Start({name}), "false " + name + "=PROCESSING");
        ASSERT_EQ(StateOf(name), AppStateType::WAIT_READY_STATE);
        processManager_.ClearRequests();
        Forget();
        timeBefore_ = clocks_.Elapsed();
    }

    FakeClocks::Milliseconds TimeTaken() const { return clocks_.Elapsed() - timeBefore_; }

    FakeClocks::Milliseconds timeBefore_{0};
};

TEST_F(StartPhase, StartsAChainInThreeWavesAndLogsEachStep) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"}), Manifest("c").DependsOn({"b"})});
    EXPECT_EQ(Start({"c", "b", "a"}), "true a=SUCCESS b=SUCCESS c=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#0#0#", "START 1#b#0#0#", "START 1#c#0#0#"));
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=0,start=3,restart=0,timeout=5000 ms)", "INFO StartApps begin.",
                    "INFO noDependsList in startAppMap appName=a", "INFO StartNoDependsApps start begin.",
                    "INFO StartNoDependsApps add a to startAppList.", "INFO StartNoDependsApps emAgent StartApp begin.",
                    "INFO StartNoDependsApps emAgent StartApp end.", "INFO StartNoDependsApps start end.",
                    "INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=a,status=SUCCESS.",
                    "INFO noDependsList in startAppMap appName=b", "INFO StartNoDependsApps start begin.",
                    "INFO StartNoDependsApps add b to startAppList.", "INFO StartNoDependsApps emAgent StartApp begin.",
                    "INFO StartNoDependsApps emAgent StartApp end.", "INFO StartNoDependsApps start end.",
                    "INFO ApplicationManager: ReportStartAppResult: appName=b,status=SUCCESS.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=b,status=SUCCESS.",
                    "INFO noDependsList in startAppMap appName=c", "INFO StartNoDependsApps start begin.",
                    "INFO StartNoDependsApps add c to startAppList.", "INFO StartNoDependsApps emAgent StartApp begin.",
                    "INFO StartNoDependsApps emAgent StartApp end.", "INFO StartNoDependsApps start end.",
                    "INFO ApplicationManager: ReportStartAppResult: appName=c,status=SUCCESS.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=c,status=SUCCESS.", "INFO StartApp end.",
                    "INFO ApplicationManager: ChangeAppState restart begin.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end."));
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
}

TEST_F(StartPhase, StartsADiamondWaveByWave) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"}), Manifest("c").DependsOn({"a"}),
          Manifest("d").DependsOn({"b", "c"})});
    EXPECT_EQ(Start({"a", "b", "c", "d"}), "true a=SUCCESS b=SUCCESS c=SUCCESS d=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#0#0#", "START 2#b#0#0#c#0#0#", "START 1#d#0#0#"));
}

TEST_F(StartPhase, SendsAWholeWaveAsOneRequest) {
    Load({Manifest("a"), Manifest("b"), Manifest("c")});
    EXPECT_EQ(Start({"c", "a", "b"}), "true a=SUCCESS b=SUCCESS c=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 3#a#0#0#b#0#0#c#0#0#"));
}

TEST_F(StartPhase, SendsArgumentsAndDynamicParametersOfTheRequest) {
    Load({Manifest("a").Arguments({"from", "manifest"})});
    EXPECT_EQ(Change({{}, {App("a", {"-x", "1"}, {{-2, {"v"}}, {3, {"p", "q"}}})}, {}}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#2#-x#1#2#-2#1#v#3#2#p#q#"));
    EXPECT_THAT(manager_.FindApplicationSilently("a")->GetArguments(), ElementsAre("-x", "1"));
}

TEST_F(StartPhase, EmptyArgumentsOfTheRequestReplaceThoseOfTheManifest) {
    Load({Manifest("a").Arguments({"from", "manifest"})});
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_THAT(manager_.FindApplicationSilently("a")->GetArguments(), IsEmpty());
}

TEST_F(StartPhase, LastOfTwoEntriesForOneNameWins) {
    Load({Manifest("a")});
    EXPECT_EQ(Change({{}, {App("a", {"1"}), App("a", {"2"})}, {}}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#1#2#0#"));
}

TEST_F(StartPhase, StoresThePidOfTheReport) {
    Load({Manifest("a")});
    Start({"a"});
    EXPECT_EQ(manager_.FindApplicationSilently("a")->GetPid(), 100);
}

TEST_F(StartPhase, ApplicationThatRunsAlreadySucceedsWithoutACommand) {
    Load({Manifest("a")});
    BringUp({"a"});
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=0,start=1,restart=0,timeout=5000 ms)", "INFO StartApps begin.",
                    "INFO noDependsList in startAppMap appName=a", "INFO StartNoDependsApps start begin.",
                    "INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
                    "INFO StartNoDependsApps start end.", "INFO StartApp end.",
                    "INFO ApplicationManager: ChangeAppState restart begin.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end."));
}

TEST_F(StartPhase, ResultThatLandsBeforeTheSendReturnsIsNoBlockedGraph) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    processManager_.Ignore("START", "a");
    processManager_.Ignore("START", "b");
    int sends = 0;
    processManager_.OnCommand([this, &sends](const std::string&) {
        manager_.ReportRunningNormalStartFromProcMgr(++sends == 1 ? "a" : "b", 7);
    });
    EXPECT_EQ(Start({"a", "b"}), "true a=SUCCESS b=SUCCESS");
    EXPECT_THAT(ManagerLines(), Not(Contains(kBlocked)));
}

// What an application that fails, or that is not there, does to those behind it.

TEST_F(StartPhase, FailedApplicationBlocksItsDependantsAtOnce) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    processManager_.Answer("START", "a", Report::TERMINATED_ABNORMAL_EXIT, 5);
    EXPECT_EQ(Start({"a", "b"}), "false a=START_FAILED b=INIT");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=0,start=2,restart=0,timeout=5000 ms)", "INFO StartApps begin.",
                    "INFO noDependsList in startAppMap appName=a", "INFO StartNoDependsApps start begin.",
                    "INFO StartNoDependsApps add a to startAppList.", "INFO StartNoDependsApps emAgent StartApp begin.",
                    "INFO StartNoDependsApps emAgent StartApp end.", "INFO StartNoDependsApps start end.",
                    "INFO ApplicationManager: ReportStartAppResult: appName=a,status=START_FAILED.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=a,status=START_FAILED.",
                    "INFO ApplicationManager: don't need restart a. (restart=)", kBlocked, "INFO StartApp end.",
                    "INFO ApplicationManager: ChangeAppState restart begin.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end.",
                    "ERROR Start app failed. (name=a,result=START_FAILED)",
                    "ERROR Start app failed. (name=b,result=INIT)"));
}

TEST_F(StartPhase, ExitForAnInputOutputErrorIsAnsweredAsSuch) {
    Load({Manifest("a")});
    processManager_.Answer("START", "a", Report::TERMINATED_ABNORMAL_EXIT, 1);
    EXPECT_EQ(Start({"a"}), "false a=START_FAILED_BY_EIO");
}

TEST_F(StartPhase, FailedApplicationDoesNotStopItsNeighbours) {
    Load({Manifest("a"), Manifest("b"), Manifest("c").DependsOn({"b"})});
    processManager_.Answer("START", "a", Report::TERMINATED_NORMAL_EXIT);
    EXPECT_EQ(Start({"a", "b", "c"}), "false a=START_FAILED b=SUCCESS c=SUCCESS");
}

TEST_F(StartPhase, DependencyNeitherRunningNorRequestedBlocksAndLeavesTheApplicationAsItStands) {
    Load({Manifest("d"), Manifest("a").DependsOn({"d"}), Manifest("r")});
    BringUp({"r"});
    EXPECT_EQ(Change({{}, Apps({"a"}), Apps({"r"})}), "false a=INIT r=SUCCESS");
    EXPECT_THAT(ManagerLines(), Contains(kBlocked));
    EXPECT_THAT(ManagerLines(), Contains("INFO StartApp end."));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#r#0#0#"));
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
}

TEST_F(StartPhase, TerminatedDependencyBlocks) {
    Load({Manifest("d"), Manifest("a").DependsOn({"d"})});
    BringUp({"d"});
    Term({"d"});
    Forget();
    EXPECT_EQ(Start({"a"}), "false a=INIT");
    EXPECT_THAT(ManagerLines(), Contains(kBlocked));
}

TEST_F(StartPhase, RunningDependencyIsPassedAndNotAnswered) {
    Load({Manifest("d"), Manifest("a").DependsOn({"d"})});
    BringUp({"d"});
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#0#0#"));
    EXPECT_THAT(ManagerLines(), Not(Contains(HasSubstr("already feedback"))));
}

TEST_F(StartPhase, WaitsForADependencyThatIsComingUp) {
    Load({Manifest("d"), Manifest("a").DependsOn({"d"})});
    LeaveWaitReady("d");
    processManager_.Then([this] {
        clocks_.Advance(FakeClocks::Milliseconds(50));
        processManager_.Tell("d", Report::RUNNING_NORMAL_START, 9);
    });
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_EQ(TimeTaken().count(), 50);
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#0#0#"));
}

TEST_F(StartPhase, DependencyThatEndsInsteadOfComingUpBlocksThen) {
    Load({Manifest("d"), Manifest("a").DependsOn({"d"})});
    LeaveWaitReady("d");
    processManager_.Then([this] {
        clocks_.Advance(FakeClocks::Milliseconds(50));
        processManager_.Tell("d", Report::TERMINATED_NORMAL_EXIT);
    });
    EXPECT_EQ(Start({"a"}), "false a=INIT");
    EXPECT_EQ(TimeTaken().count(), 50);
    EXPECT_THAT(ManagerLines(), Contains(kBlocked));
    EXPECT_THAT(ManagerLines(), Not(Contains(HasSubstr("StartApp failed. timeout"))));
}

TEST_F(StartPhase, DependencyWithoutManifestBlocks) {
    Load({Manifest("a").DependsOn({"nowhere"})});
    EXPECT_EQ(Start({"a"}), "false a=INIT");
    EXPECT_THAT(ManagerLines(), Contains(kBlocked));
}

TEST_F(StartPhase, UnknownDependencyIsLoggedAndOthersStart) {
    Load({Manifest("a").DependsOn({"nowhere"}), Manifest("b")});
    EXPECT_EQ(Start({"a", "b"}), "false a=INIT b=SUCCESS");
    EXPECT_THAT(ManagerLines(), Contains("ERROR ChangeApp failed. because StartGraph's elem=nowhere not in "
                                         "baseApplication and drivingApplication!"));
}

TEST_F(StartPhase, CycleBlocks) {
    Load({Manifest("a").DependsOn({"b"}), Manifest("b").DependsOn({"a"})});
    EXPECT_EQ(Start({"a", "b"}), "false a=INIT b=INIT");
    EXPECT_THAT(ManagerLines(), Contains(kBlocked));
}

TEST_F(StartPhase, DependencyThatTurnsRunningBehindTheBackOfTheRunIsPopped) {
    Load({Manifest("a").DependsOn({"d"}), Manifest("b"), Manifest("d")});
    processManager_.OnCommand([this](const std::string&) { manager_.GrpOwnerVerifyApp({{"d", 0}}); });
    EXPECT_EQ(Start({"a", "b"}), "true a=SUCCESS b=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#b#0#0#", "START 1#a#0#0#"));
    EXPECT_THAT(ManagerLines(), Contains("INFO App d in noDependsList popped success, need to report success again."));
    EXPECT_THAT(ManagerLines(), Contains("INFO ApplicationManager: ReportStartAppResult: appName=d,status=SUCCESS."));
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
}

TEST_F(StartPhase, ApplicationThatComesUpAfterItsFailureLetsTheNextOnesStartWithTheNextResult) {
    Load({Manifest("a").Restart("on-failure"), Manifest("b").DependsOn({"a"}), Manifest("c"), Manifest("d")});
    processManager_.Answer("START", "a", Report::TERMINATED_ABNORMAL_EXIT, 5);
    for (const char* name : {"c", "d"}) {
        processManager_.Ignore("START", name);
        processManager_.Then([this, name] { processManager_.Tell(name, Report::RUNNING_NORMAL_START, 9); });
    }
    EXPECT_EQ(Start({"a", "b", "c", "d"}), "false a=START_FAILED b=SUCCESS c=SUCCESS d=SUCCESS");
    EXPECT_THAT(processManager_.Requests(),
                ElementsAre("START 3#a#0#0#c#0#0#d#0#0#", "RESTART 1#a#0#0#", "START 1#b#0#0#"));
    EXPECT_THAT(ManagerLines(), Contains("WARN ApplicationManager ReportStartAppResult appName=a is already "
                                         "feedback(now result state=START_FAILED)"));
}

// Names.

TEST_F(StartPhase, NameWithoutManifestIsLoggedAndStaysWaiting) {
    Load({Manifest("a")});
    EXPECT_EQ(Start({"ghost", "a"}), "false a=SUCCESS ghost=INIT");
    const Strings lines = ManagerLines();
    ASSERT_THAT(lines, SizeIs(testing::Gt(4U)));
    EXPECT_EQ(lines[2], "ERROR ParseAndDepend::GetInstance().GetStartGraphWithErrApp failed!");
    EXPECT_EQ(lines[3], "WARN App <ghost> is not in start graph, plz check start yaml.");
    EXPECT_THAT(lines, Contains("INFO StartApp end."));
}

TEST_F(StartPhase, OnlyUnknownNamesEndAtOnce) {
    Load({Manifest("a")});
    EXPECT_EQ(Start({"ghost"}), "false ghost=INIT");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(ManagerLines(), Not(Contains(kBlocked)));
}

TEST_F(StartPhase, NameThatOnlyTheParserKnowsFailsAtOnce) {
    Load({Manifest("a")});
    ParseAndDepend::GetInstance().SetApplicationDependsMap({{"a", {}}, {"ghost", {}}});
    EXPECT_EQ(Start({"ghost", "a"}), "false a=SUCCESS ghost=START_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_THAT(ManagerLines(), Contains("ERROR ChangeApp failed. because StartGraph's elem=ghost not in "
                                         "baseApplication and drivingApplication!"));
}

TEST_F(StartPhase, ApplicationThatVanishedBeforeItsCommandFailsAtOnce) {
    Load({Manifest("a")});
    StartAppInfo record;
    ApplicationManagerPeer::Start().results["ghost"] = AppChangeState::PROCESSING;
    ApplicationManagerPeer::StartNoDepends({App("ghost")}, record);
    EXPECT_EQ(ApplicationManagerPeer::Start().results.at("ghost"), AppChangeState::START_FAILED);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO StartNoDependsApps start begin.",
                            "INFO ApplicationManager: FindApplication ghost (no application found).",
                            "ERROR StartApp ghost failed. because start elem not in baseApplication and "
                            "drivingApplication!",
                            "INFO ApplicationManager: ReportStartAppResult: appName=ghost,status=START_FAILED.",
                            "INFO StartNoDependsApps start end."));
}

TEST_F(StartPhase, EmptyWaveIsLoggedWithoutAnAgentLine) {
    StartAppInfo record;
    Forget();
    ApplicationManagerPeer::StartNoDepends({}, record);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO StartNoDependsApps start begin.", "INFO StartNoDependsApps start end."));
}

TEST_F(StartPhase, MakesAnInstanceOfATemplateWithTheTemplatesDependencies) {
    Load({Manifest("base"), Manifest("cam").Template().DependsOn({"base"})});
    EXPECT_EQ(Start({"cam@front", "base"}), "true base=SUCCESS cam@front=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#base#0#0#", "START 1#cam@front#0#0#"));
    EXPECT_THAT(ManagerLines(), Contains("INFO ApplicationManager: CreateDynamicApplication cam@front"));
}

TEST_F(StartPhase, TemplateItselfCannotBeStarted) {
    Load({Manifest("cam").Template()});
    EXPECT_EQ(Start({"cam"}), "false cam=START_FAILED");
}

TEST_F(StartPhase, DependencyThatIsAnUnmadeInstanceIsNotMade) {
    Load({Manifest("cam").Template(), Manifest("a").DependsOn({"cam@front"})});
    EXPECT_EQ(Start({"a"}), "false a=INIT");
    EXPECT_EQ(manager_.FindApplicationSilently("cam@front"), nullptr);
}

// States that take no command.

TEST_F(StartPhase, ApplicationThatWaitsForReadinessGetsNoSecondCommand) {
    Load({Manifest("a")});
    LeaveWaitReady("a");
    processManager_.Then([this] { processManager_.Tell("a", Report::RUNNING_NORMAL_START, 9); });
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(ManagerLines(), Contains("WARN StartApp a, app in waitready, skip send cmd to pm"));
}

TEST_F(StartPhase, ApplicationThatIsBeingTerminatedCannotBeStarted) {
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.Ignore("TERM", "a");
    Term({"a"});
    Forget();
    EXPECT_EQ(Start({"a"}), "false a=START_FAILED");
    EXPECT_THAT(ManagerLines(), Contains("WARN StartApp a failed. because cannot start in this state!"));
}

TEST_F(StartPhase, SelfReportingApplicationSucceedsWithItsOwnReport) {
    Load({Manifest("a").Reporting()});
    processManager_.Then([this] { manager_.ReportRunningNormalStartFromApp("a"); });
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
}

TEST_F(StartPhase, SelfReportingApplicationThatNeverReportsWaitsOutTheTimeAndStaysProcessing) {
    Load({Manifest("a").Reporting()});
    EXPECT_EQ(Start({"a"}), "false a=PROCESSING");
    EXPECT_EQ(clocks_.Elapsed().count(), 4500);
    EXPECT_EQ(StateOf("a"), AppStateType::WAIT_READY_STATE);
    processManager_.ClearRequests();
    EXPECT_EQ(Start({"a"}), "false a=PROCESSING");
    EXPECT_EQ(clocks_.Elapsed().count(), 9000);
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
}

// Time.

TEST_F(StartPhase, TimeoutLeavesCommandedOnesProcessingAndFailsTheRest) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    processManager_.Ignore("START", "a");
    EXPECT_EQ(Start({"a", "b"}, 1000), "false a=PROCESSING b=START_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 900);
    const Strings lines = ManagerLines();
    ASSERT_GE(lines.size(), 6U);
    EXPECT_THAT(Strings(lines.end() - 6, lines.end()),
                ElementsAre("ERROR StartApp failed. timeout=4500(ms)", "INFO Start appName=a state=PROCESSING",
                            "INFO Start appName=b state=INIT", "WARN mark b to START_FAILED",
                            "ERROR Start app failed. (name=a,result=PROCESSING)",
                            "ERROR Start app failed. (name=b,result=START_FAILED)"));
}

TEST_F(StartPhase, TimeCountsForThePhaseAndNotForEachWave) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    processManager_.Ignore("START", "a");
    processManager_.Ignore("START", "b");
    processManager_.Then([this] {
        clocks_.Advance(FakeClocks::Milliseconds(200));
        processManager_.Tell("a", Report::RUNNING_NORMAL_START, 9);
    });
    processManager_.Then([this] {
        clocks_.Advance(FakeClocks::Milliseconds(200));
        return true;
    });
    EXPECT_EQ(Start({"a", "b"}, 300), "false a=SUCCESS b=PROCESSING");
}

TEST_F(StartPhase, LateSuccessIsOnlyLogged) {
    Load({Manifest("a")});
    processManager_.Ignore("START", "a");
    Start({"a"});
    Forget();
    manager_.ReportRunningNormalStartFromProcMgr("a", 9);
    EXPECT_EQ(StateOf("a"), AppStateType::RUNNING_STATE);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
                            "WARN ApplicationManager ReportStartAppResult appName=a is already feedback(now result "
                            "state=PROCESSING)",
                            "INFO ApplicationManager: ReportRestartAppResult appName=a,status=SUCCESS."));
    EXPECT_EQ(ApplicationManagerPeer::Start().results.at("a"), AppChangeState::PROCESSING);
}

TEST_F(StartPhase, ResultBetweenTheTimeoutAndTheAnswerDoesNotChangeTheAnswer) {
    Load({Manifest("a")});
    processManager_.Ignore("START", "a");
    FakeLog::Get().OnLine([this](const FakeLog::Record& record) {
        if (record.text == "StartApp failed. timeout=4500(ms)") {
            manager_.ReportRunningNormalStartFromProcMgr("a", 9);
        }
    });
    EXPECT_EQ(Start({"a"}), "false a=PROCESSING");
}

TEST_F(StartPhase, ResultWhileTheGraphIsBeingBuiltSettlesTheVertex) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    LeaveWaitReady("a");
    FakeManifests::Get().OnCall(FakeManifests::Operation::START_GRAPH,
                                [this] { manager_.ReportRunningNormalStartFromProcMgr("a", 9); });
    EXPECT_EQ(Start({"a", "b"}), "true a=SUCCESS b=SUCCESS");
    EXPECT_EQ(TimeTaken().count(), 0);
}

// The agent.

TEST_F(StartPhase, FailedSendFailsEveryApplicationOfTheWaveThroughItsStateMachine) {
    Load({Manifest("a"), Manifest("b")});
    processManager_.FailSends(1, 1);
    EXPECT_EQ(Start({"a", "b"}), "false a=START_FAILED b=START_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_EQ(StateOf("a"), AppStateType::TERMINATED_STATE);
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=0,start=2,restart=0,timeout=5000 ms)", "INFO StartApps begin.",
                    "INFO noDependsList in startAppMap appName=a", "INFO noDependsList in startAppMap appName=b",
                    "INFO StartNoDependsApps start begin.", "INFO StartNoDependsApps add a to startAppList.",
                    "INFO StartNoDependsApps add b to startAppList.", "INFO StartNoDependsApps emAgent StartApp begin.",
                    "ERROR StartApp a failed, because ProcMgrAgent StartApp failed",
                    "INFO ApplicationManager: ReportStartAppResult: appName=a,status=START_FAILED.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=a,status=START_FAILED.",
                    "ERROR StartApp b failed, because ProcMgrAgent StartApp failed",
                    "INFO ApplicationManager: ReportStartAppResult: appName=b,status=START_FAILED.",
                    "INFO ApplicationManager: ReportRestartAppResult appName=b,status=START_FAILED.",
                    "INFO StartNoDependsApps emAgent StartApp end.", "INFO StartNoDependsApps start end.", kBlocked,
                    "INFO StartApp end.", "INFO ApplicationManager: ChangeAppState restart begin.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end.",
                    "ERROR Start app failed. (name=a,result=START_FAILED)",
                    "ERROR Start app failed. (name=b,result=START_FAILED)"));
    EXPECT_EQ(Start({"a", "b"}), "true a=SUCCESS b=SUCCESS");
}

TEST_F(StartPhase, FailedSecondPieceFailsThoseOfTheFirstPieceToo) {
    const std::string longName(3950, 'x');
    Load({Manifest("a"), Manifest(longName)});
    processManager_.FailSends(2, 1);
    EXPECT_EQ(Start({"a", longName}), "false a=START_FAILED " + longName + "=START_FAILED");
    ASSERT_TRUE(processManager_.Step());
    // The process of the first piece came up all the same; its report finds an application that ended.
    EXPECT_EQ(StateOf("a"), AppStateType::TERMINATED_STATE);
}

// Two runs.

TEST_F(StartPhase, BootOfAWaitingApplicationDoesNotEnterAChangeThatDoesNotNameIt) {
    Load({Manifest("a").AutoBoot().Restart("on-failure"), Manifest("b")});
    BringUp({"a"});
    processManager_.Ignore("RESTART", "a");
    processManager_.Tell("a", Report::TERMINATED_ABNORMAL_EXIT, 0, 5);
    ASSERT_TRUE(processManager_.Step());
    ASSERT_EQ(StateOf("a"), AppStateType::WAIT_READY_STATE);
    processManager_.Ignore("START", "b");
    bool isBooted = false;
    processManager_.Then([this, &isBooted] {
        processManager_.Then([this] { processManager_.Tell("a", Report::RUNNING_NORMAL_RESTART, 9); });
        isBooted = manager_.StartBaseApplication();
        processManager_.Tell("b", Report::RUNNING_NORMAL_START, 9);
    });
    EXPECT_EQ(Start({"b"}), "true b=SUCCESS");
    EXPECT_TRUE(isBooted);
}

TEST_F(StartPhase, ParserThatThrowsFailsTheChangeAndNotTheNextOne) {
    Load({Manifest("a")});
    FakeManifests::Get().ThrowOnce(FakeManifests::Operation::START_GRAPH);
    EXPECT_EQ(Start({"a"}), "false a=START_FAILED");
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
}

}  // namespace
}  // namespace ProcMgr
