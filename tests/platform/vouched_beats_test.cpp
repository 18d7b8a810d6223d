#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>

#include "platform/posix/common_posix/app_beat.h"
#include "platform/posix/heartbeat/heartbeat_wire.h"
#include "tests/platform/heartbeat_test_kit.h"

namespace ProcMgr::Posix {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The process manager: beats as often as it can, until it is held up.
class Manager {
public:
    Manager() {
        TakeAppBeat({});
        thread_ = std::thread([this] { Run(); });
    }
    ~Manager() { Stop(); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    void Stop() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isStopping_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    void Run() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!changed_.wait_for(lock, std::chrono::milliseconds(1), [this] { return isStopping_; })) {
            TakeAppBeat({});
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isStopping_ = false;
    std::thread thread_;
};

/// Lets periods of the heartbeat pass, counted by a heart of its own that beats for another watcher.
void LetPeriodsPass(const HeartFolder& folder, size_t count) {
    const auto receiver = folder.Receiver("clock");
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(StartSending("tick", "clock", handle), 0);
    EXPECT_GE(WaitForBeats(*receiver, count).size(), count);
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(VouchedBeats, TellLossAndRecoveryOnceEach) {
    const HeartFolder folder;
    const Manager manager;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
    TakeAppBeat({"cam", 4711, getgid()});
    EXPECT_THAT(Notices::Get().WaitFor(3), ElementsAre("cam 0 lost", "cam 4711 recovered", "cam 4711 lost"));
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
}

TEST(VouchedBeats, OfAnotherGroupDoNotCount) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const HeartFolder folder;
    const Manager manager;
    ASSERT_EQ(StartWatching("cam", getgid() + 1), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
    TakeAppBeat({"cam", 4711, getgid()});
    LetPeriodsPass(folder, 10);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
}

TEST(VouchedBeats, OfNamesThatAreNotWatchedAreNothing) {
    const HeartFolder folder;
    const Manager manager;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    TakeAppBeat({"lidar", 1, getgid()});
    TakeAppBeat({std::string(4096, 'n'), 1, getgid()});
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
}

TEST(VouchedBeats, MakeAnAddressOfTheWatcherUnnecessary) {
    const HeartFolder folder;
    TakeAppBeat({});
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_FALSE(std::filesystem::exists(HeartBeatPath(folder.Path(), "watcher")));
}

TEST(VouchedBeats, AreTheOnlyOnesThatCountOnceTheProcessManagerWasHeard) {
    const HeartFolder folder;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(StartSending("cam", "watcher", handle), 0);
    LetPeriodsPass(folder, 5);
    const Manager manager;
    const std::vector<std::string> notices = Notices::Get().WaitFor(1);
    ASSERT_FALSE(notices.empty());
    EXPECT_EQ(notices.back(), "cam " + std::to_string(getpid()) + " lost") << "it still beats, but nobody vouches";
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(VouchedBeats, ThatAManagerWhichIsHeldUpDoesNotBringAreNoMisses) {
    const HeartFolder folder;
    Manager manager;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    TakeAppBeat({"cam", 4711, getgid()});
    manager.Stop();
    LetPeriodsPass(folder, 20);
    EXPECT_THAT(Notices::Get().WaitFor(0), IsEmpty());
    const Manager again;
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 4711 lost")) << "now it is the application's fault";
}

}  // namespace
}  // namespace ProcMgr::Posix
