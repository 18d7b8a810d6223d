#include "app_manager/start_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace ProcMgr {
namespace {

using StartPlan::Settlement;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr AppChangeState kInit = AppChangeState::INIT;
constexpr AppChangeState kProcessing = AppChangeState::PROCESSING;
constexpr AppChangeState kSuccess = AppChangeState::SUCCESS;
constexpr AppChangeState kStartFailed = AppChangeState::START_FAILED;

class StartPlanTest : public ::testing::Test {
protected:
    using Names = std::vector<std::string>;

    /// `edges`: a name and one it depends on.
    void Open(const Names& requested, const std::vector<std::pair<std::string, std::string>>& edges) {
        DependGraph graph;
        for (const std::string& name : requested) {
            graph.AddVertex(name);
        }
        for (const auto& [name, dependency] : edges) {
            graph.AddEdge(name, dependency);
        }
        StartPlan::Open(info_, requested, std::move(graph));
    }

    StartPlan::Round Round() { return StartPlan::TakeRound(info_); }

    void Command(const std::string& name) { EXPECT_TRUE(StartPlan::MarkCommanded(info_, name)); }

    Settlement Settle(const std::string& name, AppChangeState state) {
        return StartPlan::Settle(info_, name, state, stored_);
    }

    StartAppInfo info_;
    AppChangeState stored_ = kInit;
};

TEST_F(StartPlanTest, RecordMadeByHandIsOpen) {
    info_.results["a"] = kInit;
    EXPECT_EQ(Settle("a", kSuccess), Settlement::TAKEN);
    EXPECT_EQ(info_.results.at("a"), kSuccess);
}

TEST_F(StartPlanTest, FirstRoundHoldsTheFreeVertices) {
    Open({"a", "b", "c"}, {{"b", "a"}});
    const StartPlan::Round round = Round();
    EXPECT_FALSE(round.isDone);
    EXPECT_TRUE(round.canMove);
    EXPECT_THAT(round.noDepends, ElementsAre("a", "c"));
}

TEST_F(StartPlanTest, RoundWithoutChangeIsEmpty) {
    Open({"a", "b"}, {{"b", "a"}});
    Round();
    Command("a");
    const StartPlan::Round round = Round();
    EXPECT_TRUE(round.canMove);
    EXPECT_THAT(round.noDepends, IsEmpty());
}

TEST_F(StartPlanTest, SuccessFreesWhoWaited) {
    Open({"a", "b", "c"}, {{"b", "a"}, {"c", "a"}});
    Round();
    Command("a");
    EXPECT_EQ(Settle("a", kSuccess), Settlement::TAKEN);
    EXPECT_TRUE(info_.hasProgress);
    EXPECT_THAT(Round().noDepends, ElementsAre("b", "c"));
}

TEST_F(StartPlanTest, FailureBlocksWhoWaited) {
    Open({"a", "b"}, {{"b", "a"}});
    Round();
    Command("a");
    EXPECT_EQ(Settle("a", kStartFailed), Settlement::TAKEN);
    const StartPlan::Round round = Round();
    EXPECT_FALSE(round.isDone);
    EXPECT_FALSE(round.canMove);
    EXPECT_THAT(round.noDepends, IsEmpty());
    EXPECT_EQ(info_.results.at("b"), kInit);
}

TEST_F(StartPlanTest, SuccessThatFreesNobodyIsNoProgressWhileOthersAreOnTheirWay) {
    Open({"a", "b", "c"}, {{"c", "a"}, {"c", "b"}});
    Round();
    Command("a");
    Command("b");
    EXPECT_EQ(Settle("a", kSuccess), Settlement::TAKEN);
    EXPECT_FALSE(info_.hasProgress);
    EXPECT_EQ(Settle("b", kSuccess), Settlement::TAKEN);
    EXPECT_TRUE(info_.hasProgress);
}

TEST_F(StartPlanTest, LastFailureOfAWaveIsProgress) {
    Open({"a", "b", "c"}, {{"c", "a"}});
    Round();
    Command("a");
    Command("b");
    Settle("a", kStartFailed);
    EXPECT_FALSE(info_.hasProgress);
    Settle("b", kStartFailed);
    EXPECT_TRUE(info_.hasProgress);
}

TEST_F(StartPlanTest, ProgressThatNobodyHasTakenUpStays) {
    Open({"a", "b", "c", "d"}, {{"d", "a"}});
    Round();
    Command("a");
    Command("b");
    Command("c");
    Settle("a", kSuccess);
    EXPECT_TRUE(info_.hasProgress);
    Round();
    Settle("b", kSuccess);
    EXPECT_TRUE(info_.hasProgress);
}

TEST_F(StartPlanTest, AnyResultIsProgressWhenSomebodyCameUpMeanwhile) {
    Open({"a", "b", "c"}, {});
    Round();
    Command("a");
    Command("b");
    Command("c");
    Settle("a", kStartFailed);
    StartPlan::NoteCameUp(info_, "a");
    EXPECT_FALSE(info_.hasProgress);
    Settle("b", kSuccess);
    EXPECT_TRUE(info_.hasProgress);
    EXPECT_THAT(Round().noDepends, ElementsAre("a"));
}

TEST_F(StartPlanTest, LastSuccessEndsTheRun) {
    Open({"a"}, {});
    Round();
    Command("a");
    Settle("a", kSuccess);
    EXPECT_TRUE(Round().isDone);
}

TEST_F(StartPlanTest, CommandedAndWaitingResultsAreOpenAllOthersFinal) {
    for (uint32_t value = 0; value <= 6; ++value) {
        const auto state = static_cast<AppChangeState>(value);
        info_.results["a"] = state;
        const bool isOpen = state == kInit || state == kProcessing;
        EXPECT_EQ(Settle("a", kStartFailed), isOpen ? Settlement::TAKEN : Settlement::ALREADY) << value;
        EXPECT_EQ(stored_, isOpen ? kStartFailed : state) << value;
    }
}

TEST_F(StartPlanTest, ClosedRunTakesNothing) {
    Open({"a", "b"}, {{"a", "d"}});
    info_.closed = true;
    EXPECT_EQ(Settle("a", kSuccess), Settlement::ALREADY);
    EXPECT_EQ(stored_, kInit);
    EXPECT_EQ(Settle("d", kSuccess), Settlement::IGNORED);
    EXPECT_EQ(info_.results.at("a"), kInit);
    EXPECT_FALSE(info_.hasProgress);
}

TEST_F(StartPlanTest, NameOfNobodyIsIgnoredAndNotEntered) {
    Open({"a"}, {});
    EXPECT_EQ(Settle("x", kSuccess), Settlement::IGNORED);
    EXPECT_EQ(info_.results.size(), 1U);
    EXPECT_FALSE(info_.hasProgress);
}

TEST_F(StartPlanTest, DependencyThatComesUpFreesWhoWaitedWithoutBeingEntered) {
    Open({"a"}, {{"a", "d"}});
    EXPECT_THAT(Round().noDepends, ElementsAre("d"));
    EXPECT_EQ(Settle("d", kSuccess), Settlement::TAKEN);
    EXPECT_TRUE(info_.hasProgress);
    EXPECT_THAT(Round().noDepends, ElementsAre("a"));
    EXPECT_EQ(info_.results.size(), 1U);
}

TEST_F(StartPlanTest, DependencyThatFailsOnlyWakes) {
    Open({"a"}, {{"a", "d"}});
    Round();
    EXPECT_EQ(Settle("d", kStartFailed), Settlement::TAKEN);
    EXPECT_TRUE(info_.hasProgress);
    const StartPlan::Round round = Round();
    EXPECT_FALSE(round.canMove);
    EXPECT_THAT(round.noDepends, IsEmpty());
}

TEST_F(StartPlanTest, DependencyThatIsNotFreeIsIgnored) {
    // d waits for the requested c.
    Open({"a", "c"}, {{"a", "d"}, {"d", "c"}});
    EXPECT_EQ(Settle("d", kSuccess), Settlement::IGNORED);
}

TEST_F(StartPlanTest, DependenciesAreShownInPortions) {
    Open({"a"}, {{"a", "d1"}, {"a", "d2"}, {"a", "d3"}});
    EXPECT_THAT(StartPlan::NextDependencies(info_, "", 2), ElementsAre("d1", "d2"));
    EXPECT_THAT(StartPlan::NextDependencies(info_, "d2", 2), ElementsAre("d3"));
    EXPECT_TRUE(StartPlan::PopVertex(info_, "d3"));
    EXPECT_THAT(StartPlan::NextDependencies(info_, "d2", 2), IsEmpty());
}

TEST_F(StartPlanTest, ResultBeforeTheCommandCounts) {
    Open({"a", "b"}, {{"b", "a"}});
    EXPECT_EQ(Settle("b", kStartFailed), Settlement::TAKEN);
    Round();
    Command("a");
    Settle("a", kSuccess);
    const StartPlan::Round round = Round();
    EXPECT_FALSE(round.canMove);
    EXPECT_THAT(round.noDepends, ElementsAre("b"));
    EXPECT_FALSE(StartPlan::MarkCommanded(info_, "b"));
    EXPECT_EQ(Settle("b", kSuccess), Settlement::ALREADY);
    EXPECT_THAT(Round().noDepends, ElementsAre("b"));
}

TEST_F(StartPlanTest, OnlyWaitingNamesAreCommandedAndOnlyOnce) {
    Open({"a"}, {});
    EXPECT_TRUE(StartPlan::MarkCommanded(info_, "a"));
    EXPECT_EQ(info_.results.at("a"), kProcessing);
    EXPECT_FALSE(StartPlan::MarkCommanded(info_, "a"));
    EXPECT_FALSE(StartPlan::MarkCommanded(info_, "x"));
    EXPECT_EQ(info_.results.size(), 1U);
}

TEST_F(StartPlanTest, PopOfAnUnknownVertexMovesNothing) {
    Open({"a"}, {});
    EXPECT_FALSE(StartPlan::PopVertex(info_, "x"));
    EXPECT_FALSE(info_.hasProgress);
}

TEST_F(StartPlanTest, ApplicationThatCameUpAfterItsFailureIsLookedAtAgain) {
    Open({"a", "b"}, {{"b", "a"}});
    Round();
    Command("a");
    Settle("a", kStartFailed);
    Round();
    EXPECT_EQ(Settle("a", kSuccess), Settlement::ALREADY);
    EXPECT_THAT(Round().noDepends, ElementsAre("a"));
}

TEST_F(StartPlanTest, OnlyFreeVerticesAreLookedAtAgain) {
    Open({"a", "b"}, {{"b", "a"}});
    Round();
    StartPlan::NoteCameUp(info_, "b");
    StartPlan::NoteCameUp(info_, "x");
    EXPECT_THAT(Round().noDepends, IsEmpty());
}

TEST_F(StartPlanTest, NothingIsNotedOutsideOfARun) {
    StartPlan::NoteCameUp(info_, "a");
    EXPECT_THAT(info_.progress.cameUp, IsEmpty());
    Open({"a"}, {});
    info_.closed = true;
    StartPlan::NoteCameUp(info_, "a");
    EXPECT_THAT(info_.progress.cameUp, IsEmpty());
}

TEST_F(StartPlanTest, VerticesOfACycleNeverMove) {
    Open({"a", "b"}, {{"a", "b"}, {"b", "a"}});
    const StartPlan::Round round = Round();
    EXPECT_FALSE(round.isDone);
    EXPECT_FALSE(round.canMove);
    EXPECT_THAT(round.noDepends, IsEmpty());
}

TEST_F(StartPlanTest, ResetForgetsEverything) {
    Open({"a"}, {{"a", "d"}});
    Command("a");
    StartPlan::Reset(info_);
    EXPECT_THAT(info_.results, IsEmpty());
    EXPECT_TRUE(info_.graph.IsEmpty());
    EXPECT_EQ(info_.progress.processing, 0U);
    EXPECT_EQ(Settle("d", kSuccess), Settlement::IGNORED);
}

}  // namespace
}  // namespace ProcMgr
