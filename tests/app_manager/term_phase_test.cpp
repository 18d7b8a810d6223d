#include <algorithm>

#include "platform/include/parse_and_depend.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class TermPhase : public ManagerTest {
protected:
    static void ExpectLastLines(const Strings& expected) {
        const Strings lines = ManagerLines();
        ASSERT_GE(lines.size(), expected.size());
        EXPECT_EQ(Strings(lines.end() - static_cast<std::ptrdiff_t>(expected.size()), lines.end()), expected);
    }
};

TEST_F(TermPhase, TerminatesAChainInReverseOrderAndLogsEachStep) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    BringUp({"a", "b"});
    EXPECT_EQ(Term({"a", "b"}), "true a=SUCCESS b=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#b#", "TERM 1#a#"));
    EXPECT_THAT(
        ManagerLines(),
        ElementsAre("INFO ChangeApp begin. (term=2,start=0,restart=0,timeout=5000 ms)", "INFO TermApps begin.",
                    "INFO ApplicationManager: Add to termAppList term info: name=b",
                    "INFO ApplicationManager: TermApps emAgent TermApp begin.",
                    "INFO ApplicationManager: TermApps emAgent TermApp end. (return=0)", "INFO TermApps ... ",
                    "INFO ApplicationManager: ReportTermAppResult: appName=b,status=SUCCESS.",
                    "INFO ApplicationManager: Add to termAppList term info: name=a",
                    "INFO ApplicationManager: TermApps emAgent TermApp begin.",
                    "INFO ApplicationManager: TermApps emAgent TermApp end. (return=0)", "INFO TermApps ... ",
                    "INFO ApplicationManager: ReportTermAppResult: appName=a,status=SUCCESS.", "INFO TermApps ... ",
                    "INFO TermApps end.", "INFO ApplicationManager: ChangeAppState restart begin.",
                    "INFO ApplicationManager: ChangeAppState restart end.", "INFO ApplicationManager: ChangeApp end."));
    EXPECT_EQ(StateOf("a"), AppStateType::TERMINATED_STATE);
}

TEST_F(TermPhase, EachApplicationGetsOneCommandHoweverOftenTheRunWakes) {
    Load({Manifest("x"), Manifest("y"), Manifest("z").DependsOn({"y"})});
    BringUp({"x", "y", "z"});
    EXPECT_EQ(Term({"x", "y", "z"}), "true x=SUCCESS y=SUCCESS z=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 2#x#z#", "TERM 1#y#"));
}

TEST_F(TermPhase, LeavesAloneWhoWasNotNamed) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    BringUp({"a", "b"});
    EXPECT_EQ(Term({"a"}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#a#"));
    EXPECT_EQ(StateOf("b"), AppStateType::RUNNING_STATE);
}

TEST_F(TermPhase, ApplicationsThatAreDownSucceedWithoutACommand) {
    Load({Manifest("never"), Manifest("ended")});
    BringUp({"ended"});
    Term({"ended"});
    processManager_.ClearRequests();
    EXPECT_EQ(Term({"never", "ended"}), "true ended=SUCCESS never=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_EQ(StateOf("never"), AppStateType::INIT_STATE);
}

TEST_F(TermPhase, NameGivenTwiceCountsOnce) {
    Load({Manifest("a")});
    BringUp({"a"});
    EXPECT_EQ(Term({"a", "a"}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#a#"));
}

TEST_F(TermPhase, AbnormalEndOfARequestedTerminationIsASuccessAndPolicyMayRestartIt) {
    Load({Manifest("a").Restart("on-failure")});
    BringUp({"a"});
    processManager_.Answer("TERM", "a", Report::TERMINATED_ABNORMAL_EXIT, 5);
    EXPECT_EQ(Term({"a"}), "true a=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#a#", "RESTART 1#a#0#0#"));
    Strings lines = ManagerLines();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) {
                                   return line.find("ReportTermAppResult") == std::string::npos &&
                                          line.find("ApplicationManager: restart a") == std::string::npos;
                               }),
                lines.end());
    EXPECT_THAT(lines, ElementsAre("INFO ApplicationManager: ReportTermAppResult: appName=a,status=SUCCESS.",
                                   "INFO ApplicationManager: restart a"));
}

TEST_F(TermPhase, TerminationThatTheProcessManagerGivesUpFailsAndTheApplicationRuns) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    BringUp({"a", "b"});
    processManager_.Answer("TERM", "b", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
    EXPECT_EQ(Term({"a", "b"}), "false a=SUCCESS b=TERM_FAILED");
    EXPECT_EQ(StateOf("b"), AppStateType::RUNNING_STATE);
    EXPECT_THAT(ManagerLines(), Contains("INFO TermApps end."));
}

// Names.

TEST_F(TermPhase, TemplateStandsForItsInstances) {
    Load({Manifest("cam").Template(), Manifest("lidar").Template(), Manifest("x")});
    BringUp({"cam@front", "cam@rear", "lidar@top", "x"});
    EXPECT_EQ(Term({"cam"}), "true cam@front=SUCCESS cam@rear=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 2#cam@rear#cam@front#"));
    EXPECT_EQ(manager_.FindApplicationSilently("cam@front"), nullptr);
    EXPECT_EQ(StateOf("lidar@top"), AppStateType::RUNNING_STATE);
}

TEST_F(TermPhase, TemplateWithoutInstancesSucceedsWithNothingToDo) {
    Load({Manifest("cam").Template()});
    EXPECT_EQ(Term({"cam"}), "true");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
}

TEST_F(TermPhase, TemplateThatStartsWithTheGroupIsTerminatedItself) {
    Load({Manifest("cam").Template().AutoBoot()});
    BringUp({"cam"});
    EXPECT_EQ(Term({"cam"}), "true cam=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam#"));
}

TEST_F(TermPhase, InstanceThatWasNeverMadeSucceedsAndLeavesNoTrace) {
    Load({Manifest("cam").Template()});
    EXPECT_EQ(Term({"cam@front"}), "true cam@front=SUCCESS");
    EXPECT_EQ(manager_.FindApplicationSilently("cam@front"), nullptr);
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
}

TEST_F(TermPhase, NameWithoutManifestIsLoggedAndStaysWaiting) {
    Load({Manifest("a")});
    BringUp({"a"});
    EXPECT_EQ(Term({"ghost", "a"}), "false a=SUCCESS ghost=INIT");
    const Strings lines = ManagerLines();
    ASSERT_GT(lines.size(), 4U);
    EXPECT_EQ(lines[2], "ERROR ParseAndDepend::GetInstance().GetTermGraphWithErrApp failed!");
    EXPECT_EQ(lines[3], "WARN App <ghost> is not in term graph, plz check start yaml.");
    EXPECT_THAT(lines, Contains("INFO TermApps end."));
    EXPECT_THAT(lines, Contains("ERROR Term app failed. (name=ghost,result=INIT)"));
}

TEST_F(TermPhase, NameThatOnlyTheParserKnowsFailsAtOnce) {
    Load({Manifest("a")});
    ParseAndDepend::GetInstance().SetApplicationDependsMap({{"ghost", {}}});
    EXPECT_EQ(Term({"ghost"}), "false ghost=TERM_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_THAT(
        ManagerLines(),
        Contains("ERROR TermApp ghost failed. because term elem not in baseApplication and drivingApplication!"));
}

// Time.

TEST_F(TermPhase, TimeoutFailsWhoIsLeftAndSkipsTheLaterPhases) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"}), Manifest("c"), Manifest("d")});
    BringUp({"a", "b", "d"});
    processManager_.Ignore("TERM", "b");
    EXPECT_EQ(Change({Apps({"a", "b"}), Apps({"c"}), Apps({"d"})}), "false a=TERM_FAILED b=TERM_FAILED");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#b#"));
    ExpectLastLines({"INFO TermApps ... ", "ERROR ChangeApp failed. because TermApps failed time-out.",
                     "INFO Term appName=a state=INIT", "WARN mark a to TERM_FAILED", "INFO Term appName=b state=INIT",
                     "WARN mark b to TERM_FAILED", "ERROR Term app failed. (name=a,result=TERM_FAILED)",
                     "ERROR Term app failed. (name=b,result=TERM_FAILED)"});
}

TEST_F(TermPhase, WaitsShorterThanTheRequesterDoes) {
    const struct {
        int timeout;
        int64_t wait;
    } table[] = {{5000, 4500}, {4999, 4899}, {1000, 900}, {999, 999}, {100, 100}, {50, 4500}};
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.Ignore("TERM", "a");
    for (const auto& row : table) {
        const auto before = clocks_.Elapsed();
        EXPECT_EQ(Term({"a"}, row.timeout), "false a=TERM_FAILED");
        EXPECT_EQ((clocks_.Elapsed() - before).count(), row.wait) << row.timeout;
    }
}

TEST_F(TermPhase, TimeoutOfZeroOrLessKeepsThePreviousOne) {
    Load({Manifest("a")});
    ASSERT_TRUE(manager_.FindApplication("a", false)
                    ->CompareAndSetAppState(AppStateType::INIT_STATE, AppStateType::RUNNING_STATE));
    processManager_.Ignore("TERM", "a");
    Term({"a"}, 0);
    EXPECT_EQ(clocks_.Elapsed().count(), 4400);
    Term({"a"}, -1);
    EXPECT_EQ(clocks_.Elapsed().count(), 8800);
    Term({"a"}, 1000);
    Term({"a"}, 0);
    EXPECT_EQ(clocks_.Elapsed().count(), 8800 + 2 * 900);
}

TEST_F(TermPhase, TimeCountsForEachWave) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    BringUp({"a", "b"});
    for (const char* name : {"b", "a"}) {
        processManager_.Ignore("TERM", name);
        processManager_.Then([this, name] {
            clocks_.Advance(FakeClocks::Milliseconds(200));
            processManager_.Tell(name, Report::TERMINATED_NORMAL_EXIT);
        });
    }
    EXPECT_EQ(Term({"a", "b"}, 300), "true a=SUCCESS b=SUCCESS");
    EXPECT_EQ(clocks_.Elapsed().count(), 400);
}

TEST_F(TermPhase, EachResultBeginsTheWaitAnew) {
    Load({Manifest("a"), Manifest("b"), Manifest("c")});
    BringUp({"a", "b", "c"});
    for (const char* name : {"a", "b", "c"}) {
        processManager_.Ignore("TERM", name);
        processManager_.Then([this, name] {
            clocks_.Advance(FakeClocks::Milliseconds(200));
            processManager_.Tell(name, Report::TERMINATED_NORMAL_EXIT);
        });
    }
    EXPECT_EQ(Term({"a", "b", "c"}, 300), "true a=SUCCESS b=SUCCESS c=SUCCESS");
    EXPECT_EQ(clocks_.Elapsed().count(), 600);
}

TEST_F(TermPhase, ResultOfAnEarlierWaitDoesNotLengthenTheNextOne) {
    Load({Manifest("a"), Manifest("b"), Manifest("c")});
    BringUp({"a", "b", "c"});
    for (const char* name : {"a", "b", "c"}) {
        processManager_.Ignore("TERM", name);
    }
    processManager_.Then([this] {
        clocks_.Advance(FakeClocks::Milliseconds(200));
        processManager_.Tell("a", Report::TERMINATED_NORMAL_EXIT);
    });
    EXPECT_EQ(Term({"a", "b", "c"}, 300), "false a=SUCCESS b=TERM_FAILED c=TERM_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 500);
}

TEST_F(TermPhase, ForwardJumpOfTheSystemClockIsNoTimeout) {
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.Ignore("TERM", "a");
    processManager_.Then([this] {
        clocks_.SetSystemForward(std::chrono::hours(24));
        processManager_.Tell("a", Report::TERMINATED_NORMAL_EXIT);
    });
    EXPECT_EQ(Term({"a"}), "true a=SUCCESS");
}

TEST_F(TermPhase, SuccessBetweenTheTimeoutAndTheAnswerMakesNoSuccessOfTheChange) {
    Load({Manifest("a"), Manifest("b")});
    BringUp({"a"});
    processManager_.Ignore("TERM", "a");
    FakeLog::Get().OnLine([this](const FakeLog::Record& record) {
        if (record.text == "ChangeApp failed. because TermApps failed time-out.") {
            manager_.ReportTerminatedNormalFromProcMgr("a");
        }
    });
    const std::string answer = Change({Apps({"a"}), Apps({"b"}), {}});
    EXPECT_THAT(answer, HasSubstr("false"));
    EXPECT_THAT(processManager_.RequestsOf("START"), IsEmpty());
}

TEST_F(TermPhase, ApplicationStillTerminatingIsCommandedAgainByTheNextRequest) {
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.Ignore("TERM", "a");
    EXPECT_EQ(Term({"a"}), "false a=TERM_FAILED");
    EXPECT_EQ(Term({"a"}), "false a=TERM_FAILED");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#a#", "TERM 1#a#"));
    processManager_.Then([this] { processManager_.Tell("a", Report::TERMINATED_NORMAL_EXIT); });
    EXPECT_EQ(Term({"a"}), "true a=SUCCESS");
}

TEST_F(TermPhase, LateExitWhileTheGraphIsBeingBuiltDoesNotBlockTheRun) {
    Load({Manifest("a"), Manifest("b")});
    BringUp({"a", "b"});
    processManager_.Ignore("TERM", "b");
    EXPECT_EQ(Term({"a", "b"}), "false a=SUCCESS b=TERM_FAILED");
    const auto before = clocks_.Elapsed();
    FakeManifests::Get().OnCall(FakeManifests::Operation::TERM_GRAPH,
                                [this] { manager_.ReportTerminatedNormalFromProcMgr("b"); });
    EXPECT_EQ(Term({"b"}), "true b=SUCCESS");
    EXPECT_EQ(clocks_.Elapsed(), before);
}

// Results that nobody waits for.

TEST_F(TermPhase, SecondReportIsLoggedAsDoubleAndDoesNotPopAgain) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"})});
    BringUp({"a", "b"});
    processManager_.Ignore("TERM", "a");
    processManager_.Then([this] {
        Forget();
        manager_.ReportTermAppResult("b", AppChangeState::SUCCESS);
        EXPECT_THAT(ManagerLines(),
                    ElementsAre("INFO ApplicationManager: ReportTermAppResult: appName=b,status=SUCCESS.",
                                "WARN ApplicationManager ReportTermAppResult appName=b is already feedback(now result "
                                "state=SUCCESS), double report? please check."));
    });
    EXPECT_EQ(Term({"a", "b"}), "false a=TERM_FAILED b=SUCCESS");
}

TEST_F(TermPhase, ReportForANameThatIsNotBeingTerminatedIsLoggedAsWrong) {
    Load({Manifest("a")});
    manager_.ReportTermAppResult("a", AppChangeState::TERM_FAILED);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: ReportTermAppResult: appName=a,status=TERM_FAILED.",
                            "WARN ApplicationManager ReportTermAppResult appName=a is not in "
                            "termAppInfo.termAppsResult, wrong report? please check."));
}

// The agent.

TEST_F(TermPhase, FailedSendIsLoggedAndEndsByTimeout) {
    Load({Manifest("a")});
    BringUp({"a"});
    processManager_.FailSends(1, 1);
    EXPECT_EQ(Term({"a"}), "false a=TERM_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 4500);
    EXPECT_THAT(ManagerLines(), Contains("INFO ApplicationManager: TermApps emAgent TermApp end. (return=15795459)"));
    EXPECT_EQ(Term({"a"}), "true a=SUCCESS");
}

// One change with two phases.

TEST_F(TermPhase, InstanceStartedAgainInTheSameChangeKeepsItsRecord) {
    manager_.UseClocks(WaitClocks::System());
    processManager_.AnswerAtOnce();
    Load({Manifest("cam").Template()});
    BringUp({"cam@front"});
    beforeRemoval_ = [](const std::string&) {
        // The end is settled; by the time of the removal the start is on its way.
        EXPECT_TRUE(FakePipe::Get().WaitForSent(2));
    };
    EXPECT_EQ(Change({Apps({"cam@front"}), Apps({"cam@front"}), {}}), "true cam@front=SUCCESS cam@front=SUCCESS");
    EXPECT_EQ(StateOf("cam@front"), AppStateType::RUNNING_STATE);
}

TEST_F(TermPhase, ParserThatThrowsFailsTheChangeAndNotTheNextOne) {
    Load({Manifest("a")});
    BringUp({"a"});
    FakeManifests::Get().ThrowOnce(FakeManifests::Operation::TERM_GRAPH);
    EXPECT_EQ(Term({"a"}), "false a=TERM_FAILED");
    EXPECT_EQ(Term({"a"}), "true a=SUCCESS");
}

}  // namespace
}  // namespace ProcMgr
