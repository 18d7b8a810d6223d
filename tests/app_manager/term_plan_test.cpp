#include "app_manager/term_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace ProcMgr {
namespace {

using TermPlan::Settlement;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TermPlanTest : public ::testing::Test {
protected:
    /// Each edge: a name and one that must end before it.
    void Open(const std::vector<std::string>& requested,
              const std::vector<std::pair<std::string, std::string>>& edges) {
        DependGraph graph;
        for (const std::string& name : requested) {
            graph.AddVertex(name);
        }
        for (const auto& [name, before] : edges) {
            graph.AddEdge(name, before);
        }
        TermPlan::Open(info_, requested, std::move(graph));
    }

    Settlement Settle(const std::string& name, AppChangeState state = AppChangeState::SUCCESS) {
        return TermPlan::Settle(info_, name, state, stored_);
    }

    TermAppInfo info_;
    AppChangeState stored_ = AppChangeState::INIT;
};

TEST_F(TermPlanTest, NewRecordAndNewRunGoWithoutWaiting) {
    EXPECT_TRUE(info_.hasProgress);
    info_.hasProgress = false;
    Open({"a"}, {});
    EXPECT_TRUE(info_.hasProgress);
}

TEST_F(TermPlanTest, EachVertexIsHandedOutOnce) {
    Open({"a", "b", "c"}, {{"a", "b"}});
    EXPECT_THAT(TermPlan::TakeWave(info_), ElementsAre("b", "c"));
    EXPECT_THAT(TermPlan::TakeWave(info_), IsEmpty());
    TermPlan::PopVertex(info_, "b");
    EXPECT_THAT(TermPlan::TakeWave(info_), ElementsAre("a"));
    EXPECT_THAT(TermPlan::TakeWave(info_), IsEmpty());
}

TEST_F(TermPlanTest, ResultIsProgressWhenItFreesSomebodyOrNobodyIsLeft) {
    Open({"a", "b", "c", "d"}, {{"a", "b"}, {"a", "c"}});
    TermPlan::TakeWave(info_);
    info_.hasProgress = false;
    TermPlan::PopVertex(info_, "b");
    EXPECT_FALSE(info_.hasProgress);
    TermPlan::PopVertex(info_, "c");
    EXPECT_TRUE(info_.hasProgress);
    EXPECT_THAT(TermPlan::TakeWave(info_), ElementsAre("a"));
    info_.hasProgress = false;
    TermPlan::PopVertex(info_, "a");
    EXPECT_FALSE(info_.hasProgress);
    TermPlan::PopVertex(info_, "d");
    EXPECT_TRUE(info_.hasProgress);
}

TEST_F(TermPlanTest, VertexThatNobodyAskedForLeavesTheGraphWithoutBeingCommanded) {
    Open({"a"}, {{"a", "x"}});
    std::vector<std::string> wave = TermPlan::TakeWave(info_);
    EXPECT_THAT(wave, ElementsAre("x"));
    info_.hasProgress = false;
    TermPlan::DropUnwanted(info_, wave);
    EXPECT_THAT(wave, IsEmpty());
    EXPECT_TRUE(info_.hasProgress);
    EXPECT_THAT(TermPlan::TakeWave(info_), ElementsAre("a"));
}

TEST_F(TermPlanTest, VertexThatHasItsResultIsNotCommanded) {
    Open({"a", "b"}, {});
    std::vector<std::string> wave = TermPlan::TakeWave(info_);
    EXPECT_EQ(Settle("a"), Settlement::TAKEN);
    TermPlan::DropUnwanted(info_, wave);
    EXPECT_THAT(wave, ElementsAre("b"));
}

TEST_F(TermPlanTest, ResultsAreTakenOnce) {
    Open({"a"}, {});
    EXPECT_EQ(Settle("a", AppChangeState::TERM_FAILED), Settlement::TAKEN);
    EXPECT_EQ(Settle("a", AppChangeState::SUCCESS), Settlement::ALREADY);
    EXPECT_EQ(stored_, AppChangeState::TERM_FAILED);
    EXPECT_EQ(info_.termAppsResult.at("a"), AppChangeState::TERM_FAILED);
}

TEST_F(TermPlanTest, UnknownNameIsNotEntered) {
    Open({"a"}, {});
    EXPECT_EQ(Settle("x"), Settlement::UNKNOWN);
    EXPECT_EQ(info_.termAppsResult.size(), 1U);
}

TEST_F(TermPlanTest, ResetForgetsTheResults) {
    Open({"a"}, {});
    info_.hasProgress = false;
    TermPlan::Reset(info_);
    EXPECT_THAT(info_.termAppsResult, IsEmpty());
    EXPECT_TRUE(info_.hasProgress);
}

}  // namespace
}  // namespace ProcMgr
