#include "app_manager/effective_wait.h"

#include <gtest/gtest.h>

#include <climits>

namespace ProcMgr {
namespace {

TEST(EffectiveWait, AnswersBeforeTheRequesterGivesUp) {
    const struct {
        int32_t request;
        int64_t wait;
    } table[] = {
        {INT_MAX, INT_MAX - 500},
        {6000, 5500},
        {5000, 4500},
        {4999, 4899},
        {4500, 4400},
        {1000, 900},
        {999, 999},
        {500, 500},
        {100, 100},
        {99, 4500},
        {50, 4500},
        {1, 4500},
        {0, 4500},
        {-1, 4500},
        {INT_MIN, 4500},
    };
    for (const auto& row : table) {
        EXPECT_EQ(EffectiveWait(row.request).count(), row.wait) << row.request;
    }
}

}  // namespace
}  // namespace ProcMgr
