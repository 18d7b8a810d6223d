#include <stdexcept>

#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ChangeApp : public ManagerTest {};

TEST_F(ChangeApp, ThreeEmptyListsSucceedAtOnceWithAnEmptyAnswer) {
    Load({Manifest("a")});
    EXPECT_EQ(Change({}), "true");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(ManagerLines(), ElementsAre("INFO ChangeApp begin. (term=0,start=0,restart=0,timeout=5000 ms)",
                                            "INFO ApplicationManager: ChangeAppState restart begin.",
                                            "INFO ApplicationManager: ChangeAppState restart end.",
                                            "INFO ApplicationManager: ChangeApp end."));
}

TEST_F(ChangeApp, WhileAnotherRunsReturnsFalseWithoutTouchingTheResults) {
    Load({Manifest("a"), Manifest("b")});
    processManager_.ActionsFirst();
    bool isAccepted = true;
    std::vector<AppChangeInfo> results{{"kept", AppChangeState::TERM_FAILED}};
    processManager_.Then([this, &isAccepted, &results] {
        Forget();
        isAccepted = manager_.ChangeApp({}, Apps({"b"}), {}, results, 1000);
        EXPECT_THAT(ManagerLines(), ElementsAre("INFO ChangeApp begin. (term=0,start=1,restart=0,timeout=1000 ms)",
                                                "WARN ChangeApp failed, because it is in transition."));
    });
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_FALSE(isAccepted);
    EXPECT_EQ(Text(false, results), "false kept=TERM_FAILED");
    EXPECT_EQ(ApplicationManagerPeer::ChangeTimeout(), 5000);
}

TEST_F(ChangeApp, TerminatesThenStartsThenRestarts) {
    Load({Manifest("t"), Manifest("s"), Manifest("r")});
    BringUp({"t", "r"});
    EXPECT_EQ(Change({Apps({"t"}), Apps({"s"}), Apps({"r"})}), "true s=SUCCESS t=SUCCESS r=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#t#", "START 1#s#0#0#", "RESTART 1#r#0#0#"));
}

TEST_F(ChangeApp, AppendsStartThenTermThenRestartResultsInNameOrder) {
    Load({Manifest("t1"), Manifest("t2"), Manifest("s1"), Manifest("s2"), Manifest("r")});
    BringUp({"t1", "t2", "r"});
    std::vector<AppChangeInfo> results{{"before", AppChangeState::SUCCESS}};
    EXPECT_TRUE(manager_.ChangeApp(Apps({"t2", "t1"}), Apps({"s2", "s1"}), Apps({"r"}), results, 5000));
    EXPECT_EQ(Text(true, results), "true before=SUCCESS s1=SUCCESS s2=SUCCESS t1=SUCCESS t2=SUCCESS r=SUCCESS");
}

TEST_F(ChangeApp, ApplicationTerminatedAndStartedIsAnsweredTwice) {
    Load({Manifest("a")});
    BringUp({"a"});
    EXPECT_EQ(Change({Apps({"a"}), Apps({"a"}), {}}), "true a=SUCCESS a=SUCCESS");
    EXPECT_EQ(StateOf("a"), AppStateType::RUNNING_STATE);
}

TEST_F(ChangeApp, FailedStartPhaseSkipsTheRestarts) {
    Load({Manifest("s"), Manifest("r")});
    BringUp({"r"});
    processManager_.Ignore("START", "s");
    EXPECT_EQ(Change({{}, Apps({"s"}), Apps({"r"})}), "false s=PROCESSING");
    EXPECT_THAT(processManager_.RequestsOf("RESTART"), IsEmpty());
}

TEST_F(ChangeApp, FailedTerminationThatIsReportedDoesNotSkipTheStarts) {
    Load({Manifest("t"), Manifest("s")});
    BringUp({"t"});
    processManager_.Answer("TERM", "t", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
    EXPECT_EQ(Change({Apps({"t"}), Apps({"s"}), {}}), "false s=SUCCESS t=TERM_FAILED");
}

TEST_F(ChangeApp, EachFailureLeavesTheManagerReadyForTheNextChange) {
    Load({Manifest("a")});
    for (const char* command : {"START", "RESTART"}) {
        processManager_.Ignore(command, "a");
    }
    EXPECT_EQ(Start({"a"}), "false a=PROCESSING");
    EXPECT_EQ(Restart({"a"}), "false a=RESTART_FAILED");
    processManager_.Ignore("TERM", "a");
    EXPECT_EQ(Term({"a"}), "false a=TERM_FAILED");
    EXPECT_EQ(Change({}), "true");
    EXPECT_THAT(ManagerLines(), Contains("INFO ApplicationManager: ChangeApp end."));
}

TEST_F(ChangeApp, ExceptionInAnyPhaseFailsItAndLeavesTheManagerReadyForTheNextChange) {
    const struct {
        const char* command;
        Lists lists;
        const char* answer;
    } table[] = {{"START", {{}, Apps({"start"}), {}}, "false start=PROCESSING"},
                 {"RESTART", {{}, {}, Apps({"restart"})}, "false restart=RESTART_FAILED"},
                 {"TERM", {Apps({"term"}), {}, {}}, "false term=TERM_FAILED"}};
    Load({Manifest("start"), Manifest("restart"), Manifest("term")});
    BringUp({"restart", "term"});
    for (const auto& row : table) {
        processManager_.OnCommand([&row](const std::string& kind) {
            if (kind == row.command) {
                throw std::runtime_error("out of something");
            }
        });
        EXPECT_EQ(Change(row.lists), row.answer);
        EXPECT_EQ(Change({}), "true");
        EXPECT_TRUE(manager_.ReloadCfg());
    }
}

TEST_F(ChangeApp, AnswerNamesNothingOfTheChangeBefore) {
    Load({Manifest("a"), Manifest("b"), Manifest("c")});
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_EQ(Restart({"a"}), "true a=SUCCESS");
    EXPECT_EQ(Start({"b"}), "true b=SUCCESS");
    EXPECT_EQ(Term({"b"}), "true b=SUCCESS");
    EXPECT_EQ(Change({}), "true");
}

TEST_F(ChangeApp, TimeoutThatIsTooShortToBeUsedIsStillKept) {
    Load({Manifest("a")});
    Change({}, 50);
    EXPECT_EQ(ApplicationManagerPeer::ChangeTimeout(), 50);
    Change({}, 0);
    EXPECT_EQ(ApplicationManagerPeer::ChangeTimeout(), 50);
}

TEST_F(ChangeApp, ResultsAreDispatchedByTheStateThatTheReportFound) {
    const struct {
        AppStateType stateType;
        Strings lines;
    } table[] = {
        {AppStateType::INIT_STATE,
         {"INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
          "INFO ApplicationManager: ReportRestartAppResult appName=a,status=SUCCESS."}},
        {AppStateType::WAIT_READY_STATE,
         {"INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
          "INFO ApplicationManager: ReportRestartAppResult appName=a,status=SUCCESS."}},
        {AppStateType::TERMINATING_STATE,
         {"INFO ApplicationManager: ReportTermAppResult: appName=a,status=SUCCESS.",
          "WARN ApplicationManager ReportTermAppResult appName=a is not in termAppInfo.termAppsResult, wrong report? "
          "please check."}},
        {AppStateType::RUNNING_STATE, {}},
        {AppStateType::TERMINATED_STATE, {}},
    };
    Load({Manifest("a")});
    for (const auto& row : table) {
        Forget();
        manager_.ReportAppResult("a", AppChangeState::SUCCESS, row.stateType);
        EXPECT_EQ(ManagerLines(), row.lines) << static_cast<uint32_t>(row.stateType);
        Forget();
        manager_.ReportAppResult("a", AppChangeState::PROCESSING, row.stateType);
        EXPECT_THAT(ManagerLines(), IsEmpty());
    }
}

}  // namespace
}  // namespace ProcMgr
