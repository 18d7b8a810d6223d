#include "common/timer.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace ProcMgr::DataMaster {
namespace {

int64_t g_now = 0;

int64_t ReadFakeClock() {
    return g_now;
}

constexpr int64_t kMillisecond = 1000000;

class TimerTest : public testing::Test {
protected:
    TimerTest() { Timer::SetClock(&ReadFakeClock); }
    ~TimerTest() override { Timer::SetClock(nullptr); }
};

TEST_F(TimerTest, NeverStartedIsNotRunningAndHasElapsedZero) {
    g_now = 12345 * kMillisecond;
    const Timer timer;
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(timer.ElapsedMilliseconds(), 0);
}

TEST_F(TimerTest, ElapsedGrowsWhileItRunsAndIsFrozenAfterStop) {
    Timer timer;
    g_now = 5 * kMillisecond;
    timer.Start();
    EXPECT_TRUE(timer.IsRunning());
    EXPECT_EQ(timer.ElapsedMilliseconds(), 0);
    g_now = 12 * kMillisecond;
    EXPECT_EQ(timer.ElapsedMilliseconds(), 7);
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
    g_now = 99 * kMillisecond;
    EXPECT_EQ(timer.ElapsedMilliseconds(), 7);
}

TEST_F(TimerTest, ElapsedIsTruncatedTowardZero) {
    Timer timer;
    g_now = 10 * kMillisecond;
    timer.Start();
    g_now = 12 * kMillisecond - 1;
    EXPECT_EQ(timer.ElapsedMilliseconds(), 1);
    g_now = 8 * kMillisecond + 1;
    EXPECT_EQ(timer.ElapsedMilliseconds(), -1) << "a clock that goes back is not the timer's affair";
}

TEST_F(TimerTest, CanBeStartedAgain) {
    Timer timer;
    g_now = 0;
    timer.Start();
    g_now = 50 * kMillisecond;
    timer.Stop();
    timer.Start();
    EXPECT_TRUE(timer.IsRunning());
    g_now = 51 * kMillisecond;
    EXPECT_EQ(timer.ElapsedMilliseconds(), 1);
}

TEST_F(TimerTest, IsAValue) {
    Timer timer;
    g_now = 0;
    timer.Start();
    const Timer copy = timer;
    timer.Stop();
    g_now = 3 * kMillisecond;
    EXPECT_EQ(copy.ElapsedMilliseconds(), 3);
    EXPECT_EQ(timer.ElapsedMilliseconds(), 0);
}

TEST(Timer, OnTheSteadyClockNeverGoesBack) {
    Timer timer;
    timer.Start();
    const int64_t first = timer.ElapsedMilliseconds();
    EXPECT_GE(first, 0);
    EXPECT_GE(timer.ElapsedMilliseconds(), first);
    timer.Stop();
    EXPECT_EQ(timer.ElapsedMilliseconds(), timer.ElapsedMilliseconds());
}

}  // namespace
}  // namespace ProcMgr::DataMaster
