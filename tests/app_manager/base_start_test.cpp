#include <cstdlib>

#include "platform/include/parse_and_depend.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

class StartBaseApplication : public ManagerTest {};

TEST_F(StartBaseApplication, StartsTheBaseApplicationsInDependencyOrderWithTheirOwnArguments) {
    Load({Manifest("c").AutoBoot().DependsOn({"b"}), Manifest("b").AutoBoot().DependsOn({"a"}),
          Manifest("a").AutoBoot().Arguments({"-v", "2"}), Manifest("driving")});
    EXPECT_TRUE(manager_.StartBaseApplication());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#2#-v#2#0#", "START 1#b#0#0#", "START 1#c#0#0#"));
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    const Strings lines = ManagerLines();
    ASSERT_GT(lines.size(), 4U);
    EXPECT_EQ(lines[0], "INFO ApplicationManager: StartBaseApplication begin.");
    EXPECT_EQ(lines[1], "INFO StartApps begin.");
    EXPECT_EQ(lines[lines.size() - 2], "INFO StartApp end.");
    EXPECT_EQ(lines.back(), "INFO ApplicationManager: StartBaseApplication end.");
}

TEST_F(StartBaseApplication, GroupWithoutBaseApplicationsIsStarted) {
    Load({Manifest("driving")});
    EXPECT_TRUE(manager_.StartBaseApplication());
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: StartBaseApplication begin.", "INFO StartApps begin.",
                            "INFO StartApp end.", "INFO ApplicationManager: StartBaseApplication end."));
}

TEST_F(StartBaseApplication, DependantOfAFailedOneIsNotStartedAndBothAreLogged) {
    Load({Manifest("a").AutoBoot(), Manifest("b").AutoBoot().DependsOn({"a"}), Manifest("c").AutoBoot()});
    processManager_.Answer("START", "a", Report::TERMINATED_NORMAL_EXIT);
    EXPECT_FALSE(manager_.StartBaseApplication());
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    const Strings lines = ManagerLines();
    ASSERT_GT(lines.size(), 4U);
    EXPECT_THAT(Strings(lines.end() - 4, lines.end()),
                ElementsAre("INFO StartApp end.", "INFO ApplicationManager: StartBaseApplication end.",
                            "ERROR Base application start failed. (Name=a,result=START_FAILED)",
                            "ERROR Base application start failed. (Name=b,result=INIT)"));
}

TEST_F(StartBaseApplication, TimeoutMarksWhoIsLeft) {
    Load({Manifest("a").AutoBoot(), Manifest("b").AutoBoot().DependsOn({"a"})});
    processManager_.Ignore("START", "a");
    EXPECT_FALSE(manager_.StartBaseApplication());
    EXPECT_EQ(clocks_.Elapsed().count(), 4400);
    const Strings lines = ManagerLines();
    ASSERT_GT(lines.size(), 7U);
    EXPECT_THAT(
        Strings(lines.end() - 7, lines.end()),
        ElementsAre("ERROR StartApp failed. timeout=4500(ms)", "ERROR ApplicationManager: StartBaseApplication error.",
                    "INFO Start appName=a state=PROCESSING", "INFO Start appName=b state=INIT",
                    "WARN mark b to START_FAILED", "ERROR Base application start failed. (Name=a,result=PROCESSING)",
                    "ERROR Base application start failed. (Name=b,result=START_FAILED)"));
}

TEST_F(StartBaseApplication, SuccessAfterTheTimeoutStaysAFailure) {
    Load({Manifest("a").AutoBoot()});
    processManager_.Ignore("START", "a");
    EXPECT_FALSE(manager_.StartBaseApplication());
    Forget();
    manager_.ReportRunningNormalStartFromProcMgr("a", 9);
    EXPECT_THAT(ManagerLines(),
                Contains("WARN ApplicationManager ReportStartAppResult appName=a is already feedback(now result "
                         "state=PROCESSING)"));
    EXPECT_FALSE(manager_.CheckBaseApplicationResult());
}

TEST_F(StartBaseApplication, SecondTimeKnowsNothingOfTheFirst) {
    Load({Manifest("a").AutoBoot(), Manifest("b").AutoBoot()});
    processManager_.Answer("START", "a", Report::TERMINATED_NORMAL_EXIT);
    EXPECT_FALSE(manager_.StartBaseApplication());
    manager_.UpdateApplicationList({Manifest("b").AutoBoot()});
    EXPECT_TRUE(manager_.StartBaseApplication());
}

TEST_F(StartBaseApplication, ApplicationTerminatedWhileItStartsIsNeverSettled) {
    Load({Manifest("a").AutoBoot()});
    processManager_.Ignore("START", "a");
    processManager_.Then([this] { EXPECT_EQ(Term({"a"}), "true a=SUCCESS"); });
    EXPECT_FALSE(manager_.StartBaseApplication());
    EXPECT_THAT(ManagerLines(), Contains("ERROR Base application start failed. (Name=a,result=PROCESSING)"));
}

TEST_F(StartBaseApplication, ParserThatThrowsIsAFailureAndTheNextStartWorks) {
    Load({Manifest("a").AutoBoot()});
    FakeManifests::Get().ThrowOnce(FakeManifests::Operation::START_GRAPH);
    EXPECT_FALSE(manager_.StartBaseApplication());
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: StartBaseApplication begin.", "INFO StartApps begin.",
                            "ERROR ApplicationManager: StartBaseApplication error.", "INFO Start appName=a state=INIT",
                            "WARN mark a to START_FAILED",
                            "ERROR Base application start failed. (Name=a,result=START_FAILED)"));
    EXPECT_TRUE(manager_.StartBaseApplication());
}

TEST_F(StartBaseApplication, PrintsTheStretchedTimeoutInRunModeOneAndWaitsAsEver) {
    setenv("DATAMASTER_RUN_MODE", "1", 1);
    Load({Manifest("a").AutoBoot()});
    processManager_.Ignore("START", "a");
    EXPECT_FALSE(manager_.StartBaseApplication());
    EXPECT_EQ(clocks_.Elapsed().count(), 4400);
    EXPECT_THAT(ManagerLines(), Contains("ERROR StartApp failed. timeout=18000000(ms)"));
}

TEST_F(StartBaseApplication, BeforeAnyStartThereIsNoFailure) {
    EXPECT_TRUE(manager_.CheckBaseApplicationResult());
    EXPECT_THAT(ManagerLines(), Not(Contains(testing::HasSubstr("Base application start failed"))));
}

TEST_F(StartBaseApplication, ResultsAreOfferedToAChangeThatWaitsForTheSameNames) {
    Load({Manifest("a").AutoBoot()});
    processManager_.Ignore("START", "a");
    bool isBooted = false;
    processManager_.Then([this, &isBooted] {
        processManager_.Then([this] { processManager_.Tell("a", Report::RUNNING_NORMAL_START, 9); });
        isBooted = manager_.StartBaseApplication();
    });
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_TRUE(isBooted);
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#0#0#"));
}

}  // namespace
}  // namespace ProcMgr
