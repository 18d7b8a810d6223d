#include "app_manager/deadline_wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/app_manager/fake_clocks.h"

namespace ProcMgr {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;

class DeadlineWait : public ::testing::Test {
protected:
    bool Wait(const Deadline& deadline) {
        std::unique_lock<std::mutex> lock(mutex_);
        return deadline.Wait(condition_, lock, [this] { return isReached_; });
    }

    FakeClocks clocks_;
    std::mutex mutex_;
    std::condition_variable condition_;
    bool isReached_ = false;
};

TEST_F(DeadlineWait, ReturnsAtOnceWhenTheConditionHoldsAlready) {
    isReached_ = true;
    EXPECT_TRUE(Wait(Deadline(clocks_, milliseconds(100))));
    EXPECT_TRUE(clocks_.Waits().empty());
}

TEST_F(DeadlineWait, ExpiresWhenBothClocksArePast) {
    const Deadline deadline(clocks_, milliseconds(100));
    EXPECT_FALSE(deadline.HasPassed());
    EXPECT_FALSE(Wait(deadline));
    EXPECT_TRUE(deadline.HasPassed());
    EXPECT_THAT(clocks_.Waits(), ElementsAre(milliseconds(100)));
    EXPECT_EQ(clocks_.Elapsed(), milliseconds(100));
}

TEST_F(DeadlineWait, RestartBeginsTheWaitAnewOnBothClocks) {
    Deadline deadline(clocks_, milliseconds(100));
    clocks_.Advance(milliseconds(70));
    deadline.Restart();
    EXPECT_FALSE(Wait(deadline));
    EXPECT_THAT(clocks_.Waits(), ElementsAre(milliseconds(100)));
    EXPECT_EQ(clocks_.Elapsed(), milliseconds(170));
}

TEST_F(DeadlineWait, RestartWhileSomebodyWaitsLengthensTheWait) {
    Deadline deadline(clocks_, milliseconds(100));
    bool isRestarted = false;
    clocks_.OnWait([this, &deadline, &isRestarted] {
        if (isRestarted) {
            return false;
        }
        isRestarted = true;
        clocks_.Advance(milliseconds(60));
        deadline.Restart();
        return true;
    });
    EXPECT_FALSE(Wait(deadline));
    EXPECT_THAT(clocks_.Waits(), ElementsAre(milliseconds(100), milliseconds(100)));
    EXPECT_EQ(clocks_.Elapsed(), milliseconds(160));
}

TEST_F(DeadlineWait, ForwardJumpOfTheSystemClockNeitherExpiresNorSpins) {
    const Deadline deadline(clocks_, milliseconds(100));
    clocks_.SetSystemForward(std::chrono::hours(24));
    EXPECT_FALSE(deadline.HasPassed());
    EXPECT_FALSE(Wait(deadline));
    EXPECT_THAT(clocks_.Waits(), ElementsAre(milliseconds(100)));
    EXPECT_EQ(clocks_.Elapsed(), milliseconds(100));
}

TEST_F(DeadlineWait, ForwardJumpInTheMiddleOfAWaitCostsOneMoreWait) {
    const Deadline deadline(clocks_, milliseconds(100));
    bool hasJumped = false;
    clocks_.OnWait([this, &hasJumped] {
        if (hasJumped) {
            return false;
        }
        hasJumped = true;
        clocks_.Advance(milliseconds(40));
        clocks_.SetSystemForward(std::chrono::hours(1));
        return true;
    });
    EXPECT_FALSE(Wait(deadline));
    EXPECT_THAT(clocks_.Waits(), ElementsAre(milliseconds(100), milliseconds(60)));
}

TEST_F(DeadlineWait, BackwardJumpOfTheSystemClockLengthensTheWait) {
    const Deadline deadline(clocks_, milliseconds(100));
    clocks_.SetSystemForward(milliseconds(-50));
    EXPECT_FALSE(Wait(deadline));
    EXPECT_THAT(clocks_.Waits(), ElementsAre(milliseconds(150)));
}

TEST_F(DeadlineWait, ConditionThatHoldsAtTheDeadlineIsNoTimeout) {
    const Deadline deadline(clocks_, milliseconds(100));
    clocks_.OnWait([this] {
        isReached_ = true;
        clocks_.Advance(milliseconds(200));
        return true;
    });
    EXPECT_TRUE(Wait(deadline));
    EXPECT_TRUE(deadline.HasPassed());
}

TEST_F(DeadlineWait, WakesThatBringNothingAreHarmless) {
    int wakes = 0;
    clocks_.OnWait([this, &wakes] {
        isReached_ = ++wakes == 3;
        return true;
    });
    EXPECT_TRUE(Wait(Deadline(clocks_, milliseconds(100))));
    EXPECT_EQ(wakes, 3);
}

TEST_F(DeadlineWait, SystemClocksEndAWaitByNotification) {
    std::thread notifier([this] {
        const std::lock_guard<std::mutex> lock(mutex_);
        isReached_ = true;
        condition_.notify_all();
    });
    EXPECT_TRUE(Wait(Deadline(WaitClocks::System(), std::chrono::minutes(1))));
    notifier.join();
}

TEST_F(DeadlineWait, SystemClocksEndAWaitByTime) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(Wait(Deadline(WaitClocks::System(), milliseconds(5))));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(5));
}

}  // namespace
}  // namespace ProcMgr
