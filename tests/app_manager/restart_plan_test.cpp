#include "app_manager/restart_plan.h"

#include <gtest/gtest.h>

namespace ProcMgr {
namespace {

using RestartPlan::Settlement;

class RestartPlanTest : public ::testing::Test {
protected:
    Settlement Settle(const std::string& name, AppChangeState state, uint64_t report = kNewestReport) {
        return RestartPlan::Settle(info_, name, state, report, stored_);
    }

    void Open(const std::vector<std::string>& names) {
        RestartPlan::Open(info_, names);
        RestartPlan::HeedFrom(info_, kOldReport);
    }

    static constexpr uint64_t kOldReport = 7;

    RestartAppResultInfo info_;
    AppChangeState stored_ = AppChangeState::INIT;
};

TEST_F(RestartPlanTest, IsCompleteWithTheLastResult) {
    Open({"a", "b"});
    EXPECT_EQ(Settle("a", AppChangeState::SUCCESS), Settlement::TAKEN);
    EXPECT_FALSE(info_.isComplete);
    EXPECT_EQ(Settle("b", AppChangeState::START_FAILED_BY_EIO), Settlement::TAKEN);
    EXPECT_TRUE(info_.isComplete);
    EXPECT_EQ(info_.results.at("b"), AppChangeState::START_FAILED_BY_EIO);
}

TEST_F(RestartPlanTest, NameGivenTwiceCountsOnce) {
    Open({"a", "a"});
    Settle("a", AppChangeState::SUCCESS);
    EXPECT_TRUE(info_.isComplete);
}

TEST_F(RestartPlanTest, FailedStartIsAFailedRestart) {
    Open({"a"});
    EXPECT_EQ(Settle("a", AppChangeState::START_FAILED), Settlement::TAKEN);
    EXPECT_EQ(info_.results.at("a"), AppChangeState::RESTART_FAILED);
    EXPECT_EQ(stored_, AppChangeState::RESTART_FAILED);
    EXPECT_TRUE(info_.isComplete);
}

TEST_F(RestartPlanTest, SecondResultIsNotTaken) {
    Open({"a", "b"});
    Settle("a", AppChangeState::RESTART_FAILED);
    EXPECT_EQ(Settle("a", AppChangeState::SUCCESS), Settlement::ALREADY);
    EXPECT_EQ(stored_, AppChangeState::RESTART_FAILED);
    EXPECT_FALSE(info_.isComplete);
}

TEST_F(RestartPlanTest, NameOfNobodyIsNotEntered) {
    Open({"a"});
    EXPECT_EQ(Settle("x", AppChangeState::SUCCESS), Settlement::IGNORED);
    EXPECT_EQ(info_.results.size(), 1U);
    EXPECT_FALSE(info_.isComplete);
}

TEST_F(RestartPlanTest, ResultThatIsNoOutcomeDoesNotComplete) {
    Open({"a"});
    EXPECT_EQ(Settle("a", AppChangeState::TERM_FAILED), Settlement::TAKEN);
    EXPECT_FALSE(info_.isComplete);
}

TEST_F(RestartPlanTest, ReportOfBeforeTheRunIsNotHeeded) {
    Open({"a"});
    EXPECT_EQ(Settle("a", AppChangeState::SUCCESS, kOldReport), Settlement::IGNORED);
    EXPECT_FALSE(info_.isComplete);
    EXPECT_EQ(Settle("a", AppChangeState::SUCCESS, kOldReport + 1), Settlement::TAKEN);
}

TEST_F(RestartPlanTest, NothingIsHeededBeforeTheRunKnowsWhichReportsAreOld) {
    RestartPlan::Open(info_, {"a"});
    EXPECT_EQ(Settle("a", AppChangeState::SUCCESS, kOldReport), Settlement::IGNORED);
}

TEST_F(RestartPlanTest, ResetForgetsTheRun) {
    Open({"a"});
    Settle("a", AppChangeState::SUCCESS);
    RestartPlan::Reset(info_);
    EXPECT_TRUE(info_.results.empty());
    EXPECT_FALSE(info_.isComplete);
}

}  // namespace
}  // namespace ProcMgr
