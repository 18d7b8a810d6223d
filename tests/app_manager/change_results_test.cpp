#include "app_manager/change_results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ProcMgr {
namespace {

using ::testing::ElementsAre;

TEST(ChangeResults, NamesKeepTheOrderOfTheRequest) {
    EXPECT_THAT(NamesOf({{"b", {}, {}}, {"a", {}, {}}, {"b", {}, {}}}), ElementsAre("b", "a", "b"));
}

TEST(ChangeResults, NamesAreEnteredOnlyWhereThereIsNoResult) {
    ChangeResults results;
    EnterNames(results, {{"a", {}, {}}});
    EXPECT_EQ(results, (ChangeResults{{"a", AppChangeState::INIT}}));
    EnterNames(results, {{"b", {}, {}}});
    EXPECT_EQ(results.size(), 1U);
}

TEST(ChangeResults, OnlyWaitingResultsAreTurnedIntoFailures) {
    ChangeResults results{{"a", AppChangeState::INIT},
                          {"b", AppChangeState::PROCESSING},
                          {"c", AppChangeState::SUCCESS},
                          {"d", AppChangeState::START_FAILED_BY_EIO}};
    FailWaiting(results, AppChangeState::TERM_FAILED);
    EXPECT_EQ(results, (ChangeResults{{"a", AppChangeState::TERM_FAILED},
                                      {"b", AppChangeState::PROCESSING},
                                      {"c", AppChangeState::SUCCESS},
                                      {"d", AppChangeState::START_FAILED_BY_EIO}}));
}

TEST(ChangeResults, AreAppendedInNameOrder) {
    std::vector<AppChangeInfo> merged{{"z", AppChangeState::SUCCESS}};
    const std::vector<AppChangeInfo> failed =
        AppendResults({{"b", AppChangeState::PROCESSING}, {"a", AppChangeState::SUCCESS}}, merged);
    ASSERT_EQ(merged.size(), 3U);
    EXPECT_EQ(merged[1].appName, "a");
    EXPECT_EQ(merged[2].appName, "b");
    ASSERT_EQ(failed.size(), 1U);
    EXPECT_EQ(failed[0].appName, "b");
    EXPECT_EQ(failed[0].state, AppChangeState::PROCESSING);
}

}  // namespace
}  // namespace ProcMgr
