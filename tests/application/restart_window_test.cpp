#include <gtest/gtest.h>

#include "tests/application/application_test_support.h"

namespace ProcMgr {
namespace {

constexpr auto kRunning = AppStateType::RUNNING_STATE;

class RestartWindow : public testing::Test {
protected:
    // The results of so many requests one after the other, at the same moment.
    static std::string Ask(Application& application, int times) {
        std::string results;
        for (int round = 0; round < times; ++round) {
            results += application.IsOkToRestart() ? 'T' : 'F';
        }
        return results;
    }

    ManualClock clock_;
    Application application_{Manifest("cam").Restart("on-failure"), ""};
};

TEST_F(RestartWindow, PolicyOnForeverIsTrueAnyNumberOfTimesAndLeavesTheCountAlone) {
    Application application(Manifest("cam").Restart("on-forever"), "");
    application.SetRestartCount(3);
    EXPECT_EQ(Ask(application, 20), "TTTTTTTTTTTTTTTTTTTT");
    EXPECT_EQ(application.GetRestartCount(), 3U);
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
}

TEST_F(RestartWindow, SixCallsInQuickSuccessionYieldFiveTimesTrueThenFalseAndASeventhYieldsTrue) {
    for (const char* policy : {"on-failure", "on-until-succeed", "", "never"}) {
        Application application(Manifest("cam").Restart(policy), "");
        EXPECT_EQ(Ask(application, 7), "TTTTTFT") << policy;
        EXPECT_EQ(application.GetRestartCount(), 1U) << policy;
    }
}

TEST_F(RestartWindow, CountsTheAcceptedRestarts) {
    for (uint32_t count = 1; count <= 5; ++count) {
        EXPECT_TRUE(application_.IsOkToRestart());
        EXPECT_EQ(application_.GetRestartCount(), count);
    }
    EXPECT_FALSE(application_.IsOkToRestart());
    EXPECT_EQ(application_.GetRestartCount(), 0U);
}

TEST_F(RestartWindow, FiveCallsThenAPauseLongerThan60000MsThenASixthYieldsTrueWithTheWarningAndResetsTheCount) {
    EXPECT_EQ(Ask(application_, 5), "TTTTT");
    clock_.AdvanceMs(75000);
    EXPECT_TRUE(application_.IsOkToRestart());
    EXPECT_EQ(application_.GetRestartCount(), 0U);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"WARN IsOkToRestart appName:cam elapseMillisecond:75000 restartCount_:5"}));
}

TEST_F(RestartWindow, SixthCallAtExactly60000MsIsRefused) {
    EXPECT_EQ(Ask(application_, 5), "TTTTT");
    clock_.AdvanceMs(60000);
    EXPECT_FALSE(application_.IsOkToRestart());
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Lines{
            "ERROR Cannot Restart appName:cam , because restart count(5) is more than 5 within 60000(window time:60000)ms"}));
}

TEST_F(RestartWindow, SixthCallAt60001MsIsAcceptedWithTheWarning) {
    EXPECT_EQ(Ask(application_, 5), "TTTTT");
    clock_.AdvanceMs(60001);
    EXPECT_TRUE(application_.IsOkToRestart());
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"WARN IsOkToRestart appName:cam elapseMillisecond:60001 restartCount_:5"}));
}

TEST_F(RestartWindow, OpensAtTheFirstAcceptedRestartNotAtTheLast) {
    EXPECT_TRUE(application_.IsOkToRestart());
    clock_.AdvanceMs(59000);
    EXPECT_EQ(Ask(application_, 4), "TTTT");
    clock_.AdvanceMs(1001);
    EXPECT_TRUE(application_.IsOkToRestart());
}

TEST_F(RestartWindow, IsClosedByALateSixthCallToo) {
    EXPECT_EQ(Ask(application_, 5), "TTTTT");
    clock_.AdvanceMs(60001);
    EXPECT_EQ(Ask(application_, 1), "T") << "closes the window";
    EXPECT_EQ(Ask(application_, 6), "TTTTTF") << "a new window";
}

TEST_F(RestartWindow, StaysOpenBeyond60000MsWhileFewerThanFiveWereAccepted) {
    EXPECT_TRUE(application_.IsOkToRestart());
    clock_.AdvanceMs(1000000);
    EXPECT_EQ(Ask(application_, 4), "TTTT");
    EXPECT_TRUE(application_.IsOkToRestart()) << "the sixth, late";
    EXPECT_EQ(application_.GetRestartCount(), 0U);
}

TEST_F(RestartWindow, RefusesWithTheRememberedCountWhenItWasSetHigher) {
    EXPECT_TRUE(application_.IsOkToRestart());
    application_.SetRestartCount(9);
    EXPECT_FALSE(application_.IsOkToRestart());
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Lines{
            "ERROR Cannot Restart appName:cam , because restart count(9) is more than 5 within 0(window time:60000)ms"}));
}

TEST_F(RestartWindow, StartsAnewForACarriedCountWithoutItsTimer) {
    EXPECT_EQ(Ask(application_, 5), "TTTTT");
    Application fresh(Manifest("cam").Restart("on-failure"), "");
    ASSERT_TRUE(fresh.CopyDynamicAttributeFromApp(application_));
    EXPECT_EQ(fresh.GetRestartCount(), 5U);
    EXPECT_EQ(Ask(fresh, 6), "TTTTTF");
}

TEST_F(RestartWindow, MessagesComeFromTheFileOfTheApplication) {
    EXPECT_EQ(Ask(application_, 6), "TTTTTF");
    ASSERT_EQ(FakeLog::Get().Records().size(), 1U);
    EXPECT_EQ(FakeLog::Get().Records()[0].file, "application.cpp");
}

TEST_F(RestartWindow, CanRestartWithPolicyOnUntilSucceedOrAnyOtherReturnsFalseWithoutCallingTheState) {
    for (const char* policy : {"on-until-succeed", "", "on-Failure", "on-failure ", "always"}) {
        const auto application = MakeApplication(Manifest("cam").Restart(policy), kRunning);
        EXPECT_FALSE(application->CanRestart()) << policy;
        EXPECT_TRUE(application->IsAppRunning()) << policy;
    }
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
}

TEST_F(RestartWindow, CanRestartWithPolicyOnFailureOrOnForeverReturnsWhatTheStateReturns) {
    for (const char* policy : {"on-failure", "on-forever"}) {
        const auto application = MakeApplication(Manifest("cam").Restart(policy), AppStateType::TERMINATED_STATE);
        EXPECT_TRUE(application->CanRestart()) << policy;
        EXPECT_TRUE(application->IsAppWaitReady()) << policy;
        EXPECT_FALSE(application->CanRestart()) << policy;
    }
}

}  // namespace
}  // namespace ProcMgr
