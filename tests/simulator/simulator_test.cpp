#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/simulated_group.h"

using testing::IsEmpty;

class Simulator : public testing::TestWithParam<uint32_t> {};

TEST_P(Simulator, FindsNothingWrongWhateverTheProcessManagerDoes) {
    SimulatedGroup group(GetParam());
    EXPECT_THAT(group.Round(40), IsEmpty()) << "seed " << GetParam();
    EXPECT_GT(group.Successes(), 0U);
    EXPECT_GT(group.Failures(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Simulator, testing::Values(1, 2, 3, 4, 5, 6, 7, 8, 3002305));
