#include "pm_agent/procmgr_agent.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Query : public ManagerTest {
protected:
    /// "true a:100:0 b:-1:1", name, pid and state of each.
    std::string Ask(const Strings& names, int timeoutMs = 5000) {
        std::vector<AppStatus> statuses;
        std::string text = manager_.QueryAppState(names, statuses, timeoutMs) ? "true" : "false";
        for (const AppStatus& status : statuses) {
            text += " " + status.appName + ":" + std::to_string(status.pid) + ":" + std::to_string(status.state);
        }
        return text;
    }
};

TEST_F(Query, AnswersInTheOrderOfTheRequestWithPidAndState) {
    Load({Manifest("a"), Manifest("b")});
    BringUp({"a"});
    processManager_.SetQueriedState("b", 2);
    EXPECT_EQ(Ask({"b", "ghost", "a"}), "true b:-1:2 ghost:-1:1 a:100:0");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("QUERY b,a"));
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: QueryAppState begin. (appList=3, timeout=5000 ms)",
                            "INFO ApplicationManager: FindApplication ghost (no application found).",
                            "WARN ApplicationManager: QueryAppState ghost no application found",
                            "INFO ApplicationManager: QueryAppState end"));
}

TEST_F(Query, NamesThatAreAllUnknownSendNothingAndAreAnsweredAsDown) {
    Load({Manifest("a")});
    EXPECT_EQ(Ask({"x", "y"}), "true x:-1:1 y:-1:1");
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: QueryAppState begin. (appList=2, timeout=5000 ms)",
                            "INFO ApplicationManager: FindApplication x (no application found).",
                            "INFO ApplicationManager: FindApplication y (no application found).",
                            "INFO ApplicationManager: QueryAppState end, no app need query from pm",
                            "WARN ApplicationManager: QueryAppState x no application found",
                            "WARN ApplicationManager: QueryAppState y no application found"));
}

TEST_F(Query, EmptyListIsAnsweredEmpty) {
    Load({Manifest("a")});
    EXPECT_EQ(Ask({}), "true");
}

TEST_F(Query, AnswerThatDoesNotComeInTimeFailsWithoutStatuses) {
    const struct {
        int timeout;
        int64_t wait;
    } table[] = {{5000, 4500}, {4999, 4899}, {1000, 900}, {999, 999}, {100, 100}, {99, 4500}, {0, 4500}, {-1, 4500}};
    Load({Manifest("a")});
    processManager_.IgnoreQueries();
    for (const auto& row : table) {
        Forget();
        const auto before = clocks_.Elapsed();
        EXPECT_EQ(Ask({"a"}, row.timeout), "false");
        EXPECT_EQ((clocks_.Elapsed() - before).count(), row.wait) << row.timeout;
        EXPECT_THAT(ManagerLines(), Contains("ERROR ApplicationManager: QueryAppState failed. because time-out."));
    }
}

TEST_F(Query, FailedSendFailsAtOnce) {
    Load({Manifest("a")});
    processManager_.FailSends(1, 1);
    EXPECT_EQ(Ask({"a"}), "false");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: QueryAppState begin. (appList=1, timeout=5000 ms)",
                            "ERROR ApplicationManager: QueryAppState failed. because ProcMgrAgent fail."));
    EXPECT_EQ(Ask({"a"}), "true a:-1:0");
}

TEST_F(Query, WakeWithoutAnAnswerDoesNotEndTheWait) {
    Load({Manifest("a")});
    processManager_.IgnoreQueries();
    processManager_.Then([] {});
    processManager_.Then([this] { processManager_.TellStates({{"a", 0}}); });
    EXPECT_EQ(Ask({"a"}), "true a:-1:0");
}

TEST_F(Query, NotificationBeforeTheQueryDoesNotCount) {
    Load({Manifest("a")});
    ApplicationManager::NotifyQueryAppState();
    processManager_.IgnoreQueries();
    EXPECT_EQ(Ask({"a"}), "false");
}

TEST_F(Query, LateAnswerEndsTheNextQuery) {
    Load({Manifest("a")});
    processManager_.IgnoreQueries();
    EXPECT_EQ(Ask({"a"}), "false");
    processManager_.TellStates({{"a", 2}});
    EXPECT_EQ(Ask({"a"}), "true a:-1:2");
}

TEST_F(Query, ApplicationRemovedBeforeTheAnswerIsUnknown) {
    Load({Manifest("cam").Template()});
    BringUp({"cam@front"});
    processManager_.IgnoreQueries();
    processManager_.Then([this] {
        processManager_.Tell("cam@front", Report::TERMINATED_NORMAL_EXIT);
        processManager_.TellStates({{"cam@front", 1}});
    });
    EXPECT_EQ(Ask({"cam@front"}), "true cam@front:-1:1");
}

TEST_F(Query, ListNamesBaseThenDrivingApplicationsAndInstances) {
    Load({Manifest("z").AutoBoot(), Manifest("y").AutoBoot(), Manifest("b"), Manifest("cam").Template()});
    BringUp({"cam@front"});
    Strings names{"before"};
    EXPECT_TRUE(manager_.QueryAppList(names));
    EXPECT_THAT(names, ElementsAre("before", "y", "z", "b", "cam@front"));
    EXPECT_THAT(ManagerLines(), ElementsAre("INFO Query app list begin.", "INFO base: y", "INFO base: z",
                                            "INFO driving: b", "INFO driving: cam@front", "INFO Query app list end."));
}

// Verification.

TEST_F(Query, VerificationMovesOnlyApplicationsThatWereNeverStarted) {
    Load({Manifest("down"), Manifest("up"), Manifest("other"), Manifest("busy"), Manifest("base").AutoBoot()});
    BringUp({"busy"});
    EXPECT_TRUE(manager_.GrpOwnerVerifyApp({{"down", 1}, {"up", 0}, {"other", 7}, {"busy", 1}, {"base", 1}}));
    EXPECT_EQ(StateOf("down"), AppStateType::TERMINATED_STATE);
    EXPECT_EQ(StateOf("up"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(StateOf("other"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(StateOf("busy"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(StateOf("base"), AppStateType::INIT_STATE);
    EXPECT_THAT(ManagerLines(), ElementsAre("INFO Datamaster verify app begin.", "INFO verify: <base,1>",
                                            "WARN <base,1> is not in driving app list.", "INFO verify: <busy,1>",
                                            "INFO Master verify. (app=busy,state=1)", "INFO verify: <down,1>",
                                            "INFO Master verify. (app=down,state=4)", "INFO verify: <other,7>",
                                            "INFO Master verify. (app=other,state=1)", "INFO verify: <up,0>",
                                            "INFO Master verify. (app=up,state=1)", "INFO Datamaster verify app end."));
}

// Dump.

TEST_F(Query, DumpWritesEverythingInOrder) {
    Load({Manifest("base").AutoBoot(), Manifest("drive").DependsOn({"base", "cam"}), Manifest("cam").Template()});
    Forget();
    EXPECT_TRUE(manager_.ApplicationDump());
    const std::string base = manager_.FindApplication("base", false)->AppInfoToString();
    const std::string drive = manager_.FindApplication("drive", false)->AppInfoToString();
    const Application shown(Manifest("cam").Template(), "");
    Strings lines = ManagerLines();
    ASSERT_EQ(lines.size(), 12U);
    EXPECT_THAT(Strings(lines.begin(), lines.begin() + 9),
                ElementsAre("INFO Dump Info:", "INFO baseApplications Info:", "INFO " + base,
                            "INFO drivingApplications Info:", "INFO " + drive,
                            "INFO dynamicManifests Info:", "INFO " + shown.AppInfoToString(),
                            "INFO isTransitionFinished_=1 isReloading_=0", "INFO Parse_And_Depend adj Map:"));
    EXPECT_THAT(Strings(lines.begin() + 9, lines.end()),
                testing::UnorderedElementsAre("INFO app=base depend=", "INFO app=drive depend=base cam ",
                                              "INFO app=cam depend="));
}

TEST_F(Query, DumpTakesNoArgumentForAFormat) {
    Load({Manifest("a").Arguments({"%n%s%s%s"})});
    EXPECT_TRUE(manager_.ApplicationDump());
    EXPECT_THAT(ManagerLines(), Contains(testing::HasSubstr("%n%s%s%s")));
}

TEST_F(Query, DumpShowsARunningChange) {
    Load({Manifest("a")});
    processManager_.ActionsFirst();
    processManager_.Then([this] { manager_.ApplicationDump(); });
    Start({"a"});
    EXPECT_THAT(ManagerLines(), Contains("INFO isTransitionFinished_=0 isReloading_=0"));
}

// Reports.

TEST_F(Query, ReportForAnUnknownNameChangesNothing) {
    Load({Manifest("a")});
    const std::function<void()> reports[] = {
        [this] { manager_.ReportRunningNormalStartFromProcMgr("ghost", 9); },
        [this] { manager_.ReportRunningNormalStartFromApp("ghost"); },
        [this] { manager_.ReportRunningAbnormalTermTimeoutFromProcMgr("ghost"); },
        [this] { manager_.ReportTerminatedNormalFromProcMgr("ghost"); },
        [this] { manager_.ReportTerminatedAbnormalFromProcMgr("ghost", Message::AppAbnormalExitReason::IO_ERROR); },
        [this] { manager_.ReportRunningNormalReStartFromProcMgr("ghost", 9); },
    };
    for (const auto& report : reports) {
        Forget();
        report();
        EXPECT_THAT(ManagerLines(),
                    ElementsAre("INFO ApplicationManager: FindApplication ghost (no application found)."));
    }
    Strings names;
    manager_.QueryAppList(names);
    EXPECT_THAT(names, ElementsAre("a"));
}

TEST_F(Query, PidIsStoredAlsoFromReportsThatTheStateIgnores) {
    Load({Manifest("a")});
    manager_.ReportRunningNormalReStartFromProcMgr("a", 77);
    EXPECT_EQ(manager_.FindApplication("a", false)->GetPid(), 77);
    EXPECT_EQ(StateOf("a"), AppStateType::INIT_STATE);
    EXPECT_THAT(ManagerLines(), IsEmpty());
}

TEST_F(Query, PidIsKeptAfterTheEnd) {
    Load({Manifest("a")});
    BringUp({"a"});
    manager_.ReportTerminatedNormalFromProcMgr("a");
    EXPECT_EQ(StateOf("a"), AppStateType::TERMINATED_STATE);
    EXPECT_EQ(manager_.FindApplication("a", false)->GetPid(), 100);
}

}  // namespace
}  // namespace ProcMgr
