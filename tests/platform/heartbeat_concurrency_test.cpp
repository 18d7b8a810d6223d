#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/common_posix/app_beat.h"
#include "tests/platform/heartbeat_test_kit.h"

namespace ProcMgr::Posix {
namespace {

TEST(ConcurrentHearts, MayStartAndStopInManyThreadsWhileBeatsAndNoticesCome) {
    const HeartFolder folder("1");
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            const std::string name = "app" + std::to_string(thread);
            for (int round = 0; round < 50; ++round) {
                HeartBeatHandle handle = nullptr;
                EXPECT_EQ(StartWatching(name, getgid()), 0);
                EXPECT_EQ(StartSending(name, "watcher", handle), 0);
                EXPECT_EQ(StartWatching(name, getgid()), 0);
                EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
                EXPECT_EQ(UnregisterCheckHeartBeat(name.data(), name.size()), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
}

TEST(ConcurrentHearts, MayBeVouchedForWhileWatchesComeAndGo) {
    const HeartFolder folder("1");
    std::atomic<bool> isDone{false};
    std::thread manager([&isDone] {
        while (!isDone) {
            TakeAppBeat({});
            TakeAppBeat({"cam", 1, getgid()});
        }
    });
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(StartWatching("cam", getgid()), 0);
        EXPECT_EQ(StartWatching("lidar", getgid()), 0);
        EXPECT_EQ(UnregisterCheckHeartBeat("cam", 3), 0);
        EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
    }
    ASSERT_EQ(StartWatching("lidar", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), testing::Not(testing::IsEmpty()));
    isDone = true;
    manager.join();
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
}

TEST(ConcurrentHearts, MayAllBeDisabledAtAnyTime) {
    const HeartFolder folder("1");
    std::thread disabling([] {
        for (int round = 0; round < 100; ++round) {
            EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
        }
    });
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(StartWatching("cam", getgid()), 0);
    }
    disabling.join();
    EXPECT_EQ(StartWatching("last", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), testing::Not(testing::IsEmpty()));
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
}

}  // namespace
}  // namespace ProcMgr::Posix
