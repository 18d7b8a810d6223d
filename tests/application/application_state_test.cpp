#include <gtest/gtest.h>

#include "application/waitready_application_state.h"
#include "tests/application/application_test_support.h"

namespace ProcMgr {
namespace {

constexpr auto kRunning = AppStateType::RUNNING_STATE;
constexpr auto kWaitReady = AppStateType::WAIT_READY_STATE;
constexpr auto kTerminating = AppStateType::TERMINATING_STATE;
constexpr auto kTerminated = AppStateType::TERMINATED_STATE;

TEST(ApplicationStateEdges, TermOnInitReturnsTrueAndLeavesInit) {
    const auto application = MakeApplication(Manifest("cam"), AppStateType::INIT_STATE);
    EXPECT_TRUE(application->Term());
    EXPECT_TRUE(application->IsAppInitializing());
}

TEST(ApplicationStateEdges, StartOnWaitReadyOrTerminatingReturnsFalse) {
    EXPECT_FALSE(MakeApplication(Manifest("cam"), kWaitReady)->Start());
    EXPECT_FALSE(MakeApplication(Manifest("cam"), kTerminating)->Start());
}

TEST(ApplicationStateEdges, RestartOnRunningSixTimesWithin60000MsGoesFiveTimesToWaitReadyAndIsThenRefused) {
    const ManualClock clock;
    const auto application = MakeApplication(Manifest("cam").Restart("on-failure"), kRunning);
    AppStateType previous{};
    for (int round = 0; round < 5; ++round) {
        EXPECT_TRUE(application->Restart());
        EXPECT_TRUE(application->IsAppWaitReady());
        EXPECT_EQ(application->ReportRunningNormalReStartFromProcMgr(previous), AppChangeState::SUCCESS);
    }
    FakeLog::Get().Clear();
    EXPECT_FALSE(application->Restart());
    EXPECT_TRUE(application->IsAppRunning());
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Lines{
            "INFO RunningApplicationState appName:cam Restart",
            "ERROR Cannot Restart appName:cam , because restart count(5) is more than 5 within 0(window time:60000)ms",
            "ERROR RunningApplicationState Application:cam cannot restart."}));
}

TEST(ApplicationStateEdges, RestartOnTerminatedSixTimesWithin60000MsIsRefusedTheSixthTime) {
    const ManualClock clock;
    const auto application = MakeApplication(Manifest("cam").Restart("on-failure"), kTerminated);
    AppStateType previous{};
    for (int round = 0; round < 5; ++round) {
        EXPECT_TRUE(application->Restart());
        EXPECT_EQ(application->ReportTerminatedNormalFromProcMgr(previous), AppChangeState::START_FAILED);
    }
    FakeLog::Get().Clear();
    EXPECT_FALSE(application->Restart());
    EXPECT_TRUE(application->IsAppTerminated());
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Lines{
            "INFO TerminatedApplicationState appName:cam Restart",
            "ERROR Cannot Restart appName:cam , because restart count(5) is more than 5 within 0(window time:60000)ms",
            "ERROR TerminatedApplicationState Application:cam cannot restart."}));
}

TEST(ApplicationStateEdges, ANormalStartReportForARosNodeInWaitReadyStaysAndItsOwnReportMovesItToRunning) {
    const auto application = MakeApplication(Manifest("cam").RosNode(), kWaitReady);
    AppStateType previous{};
    EXPECT_EQ(application->ReportRunningNormalStartFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_TRUE(application->IsAppWaitReady());
    EXPECT_EQ(application->ReportRunningNormalStartFromApp(previous), AppChangeState::SUCCESS);
    EXPECT_EQ(previous, kWaitReady);
    EXPECT_TRUE(application->IsAppRunning());
}

TEST(ApplicationStateEdges, AnAbnormalExitWithReason1WhileWaitReadyYields6AndWithReason5Yields2) {
    AppStateType previous{};
    EXPECT_EQ(MakeApplication(Manifest("cam"), kWaitReady)->ReportTerminatedAbnormalFromProcMgr(1, previous),
              AppChangeState::START_FAILED_BY_EIO);
    EXPECT_EQ(MakeApplication(Manifest("cam"), kWaitReady)->ReportTerminatedAbnormalFromProcMgr(5, previous),
              AppChangeState::START_FAILED);
}

TEST(ApplicationStateEdges, ATerminationTimeOutWhileTerminatingReturns1AndGoesBackToRunning) {
    const auto application = MakeApplication(Manifest("cam"), kTerminating);
    AppStateType previous{};
    EXPECT_EQ(application->ReportRunningAbnormalTermTimeoutFromProcMgr(previous), AppChangeState::TERM_FAILED);
    EXPECT_EQ(previous, kTerminating);
    EXPECT_TRUE(application->IsAppRunning());
}

TEST(ApplicationStateEdges, AnyReportInTerminatedReturns5AndChangesNothing) {
    const auto application = MakeApplication(Manifest("cam").RosNode(), kTerminated);
    AppStateType previous{};
    EXPECT_EQ(application->ReportRunningNormalStartFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(application->ReportRunningAbnormalTermTimeoutFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(application->ReportRunningNormalReStartFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(application->ReportTerminatedNormalFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(application->ReportTerminatedAbnormalFromProcMgr(1, previous), AppChangeState::PROCESSING);
    EXPECT_EQ(application->ReportRunningNormalStartFromApp(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(previous, kTerminated);
    EXPECT_TRUE(application->IsAppTerminated());
}

TEST(ApplicationStateEdges, AWholeLifeOfAnApplication) {
    const auto application = MakeApplication(Manifest("cam"), AppStateType::INIT_STATE);
    AppStateType previous{};
    EXPECT_TRUE(application->Start());
    EXPECT_EQ(application->ReportRunningNormalStartFromProcMgr(previous), AppChangeState::SUCCESS);
    EXPECT_EQ(application->ReportTerminatedAbnormalFromProcMgr(0, previous), AppChangeState::PROCESSING);
    EXPECT_EQ(previous, kRunning) << "by this the manager knows that it ended by itself";
    EXPECT_TRUE(application->Restart());
    EXPECT_EQ(application->ReportRunningNormalReStartFromProcMgr(previous), AppChangeState::SUCCESS);
    EXPECT_TRUE(application->Term());
    EXPECT_EQ(application->ReportTerminatedNormalFromProcMgr(previous), AppChangeState::SUCCESS);
    EXPECT_EQ(previous, kTerminating);
    EXPECT_TRUE(application->IsAppTerminated());
}

TEST(WaitReadyApplicationState, AnswersAReportOfTheProcessManagerAlsoWhenAskedDirectly) {
    Application application(Manifest("cam"), "");
    const auto state = std::make_shared<WaitReadyApplicationState>(&application);
    application.SetAppState(state);
    EXPECT_EQ(state->RecieveNormalStartFromProcMgr(), AppChangeState::SUCCESS);
    EXPECT_TRUE(application.IsAppRunning());
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO WaitReadyApplicationState appName:cam is running after receiving pm report."}));
}

TEST(ApplicationState, GivesACopyOfTheNameOfItsApplication) {
    Application application(Manifest("cam"), "cam@front");
    EXPECT_EQ(OddState(kRunning, &application).GetApplicationName(), "cam@front");
}

}  // namespace
}  // namespace ProcMgr
