#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/heartbeat.h"
#include "tests/contract/heart_harness.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr std::chrono::seconds kPatience{30};

// What the callback was told. It has no context, so there is one for the process.
class Notices {
public:
    static Notices& Get() {
        static Notices& notices = *new Notices;
        return notices;
    }

    void Add(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        threads_.push_back(std::this_thread::get_id());
        changed_.notify_all();
    }

    // The first `count` of them.
    std::vector<std::string> WaitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_until(lock, std::chrono::system_clock::now() + kPatience,
                            [this, count] { return lines_.size() >= count; });
        return {lines_.begin(), lines_.begin() + static_cast<std::ptrdiff_t>(std::min(count, lines_.size()))};
    }

    std::vector<std::thread::id> Threads() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return threads_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
    std::vector<std::thread::id> threads_;
};

int Take(const char* name, size_t nameLen, unsigned int pid, int status) {
    Notices::Get().Add(std::string(name, nameLen) + " " + std::to_string(pid) + " " + std::to_string(status));
    return 1;
}

int TakeOtherwise(const char* name, size_t nameLen, unsigned int /*pid*/, int /*status*/) {
    Notices::Get().Add("other " + std::string(name, nameLen));
    return 1;
}

int StopFromInside(const char* name, size_t nameLen, unsigned int pid, int status) {
    const bool isStopped = UnregisterCheckHeartBeat(name, nameLen) == 0 && DisableAllCheckHeartBeat() == 0;
    (void)Take(name, nameLen, pid, status);
    return isStopped ? 1 : 0;
}

int Watch(const std::string& name) {
    return RegisterCheckHeartBeat(name.data(), name.size(), getgid(), Take);
}

int Unwatch(const std::string& name) {
    return UnregisterCheckHeartBeat(name.data(), name.size());
}

int Send(const std::string& name, const std::string& peer, HeartBeatHandle* handle) {
    return RegisterSendHeartBeat(name.data(), name.size(), peer.data(), peer.size(), handle);
}

TEST(SendHeartBeatContract, IsStoppedOnceByItsHandle) {
    const HeartHarness harness;
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(Send("owner", "PROCMGR", &handle), 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
    EXPECT_NE(UnregisterSendHeartBeat(handle), 0);
}

TEST(SendHeartBeatContract, GivesEverySenderAHandleOfItsOwn) {
    const HeartHarness harness;
    HeartBeatHandle first = nullptr;
    HeartBeatHandle second = nullptr;
    ASSERT_EQ(Send("owner", "PROCMGR", &first), 0);
    ASSERT_EQ(Send("owner", "PROCMGR", &second), 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(UnregisterSendHeartBeat(first), 0);
    EXPECT_EQ(UnregisterSendHeartBeat(second), 0);
}

TEST(SendHeartBeatContract, RefusesNamesOfZeroAndOfMoreThan256BytesAndNulls) {
    const HeartHarness harness;
    HeartBeatHandle handle = nullptr;
    EXPECT_NE(Send("", "PROCMGR", &handle), 0);
    EXPECT_NE(Send(std::string(257, 'n'), "PROCMGR", &handle), 0);
    EXPECT_NE(Send("owner", "", &handle), 0);
    EXPECT_NE(Send("owner", std::string(257, 'n'), &handle), 0);
    EXPECT_NE(Send("owner", "PROCMGR", nullptr), 0);
    EXPECT_NE(RegisterSendHeartBeat(nullptr, 5, "PROCMGR", 7, &handle), 0);
    EXPECT_NE(RegisterSendHeartBeat("owner", 5, nullptr, 7, &handle), 0);
    EXPECT_EQ(handle, nullptr);
    EXPECT_NE(UnregisterSendHeartBeat(nullptr), 0);
}

TEST(CheckHeartBeatContract, TellsALossAndARecoveryOnAThreadOfItsOwn) {
    HeartHarness harness;
    ASSERT_EQ(Watch("cam"), 0);
    harness.Lose("cam");
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 1"));
    harness.Beat("cam");
    EXPECT_THAT(Notices::Get().WaitFor(2), ElementsAre("cam 0 1", "cam " + std::to_string(getpid()) + " 0"));
    for (const std::thread::id thread : Notices::Get().Threads()) {
        EXPECT_NE(thread, std::this_thread::get_id());
    }
}

TEST(CheckHeartBeatContract, ReadsAsManyBytesOfANameAsAreGiven) {
    HeartHarness harness;
    ASSERT_EQ(RegisterCheckHeartBeat("camera", 3, getgid(), Take), 0);
    harness.Lose("cam");
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre(StartsWith("cam ")));
    EXPECT_NE(Unwatch("camera"), 0);
    EXPECT_EQ(UnregisterCheckHeartBeat("cam@front", 3), 0);
}

TEST(CheckHeartBeatContract, ReplacesAWatchOfTheSameName) {
    HeartHarness harness;
    ASSERT_EQ(Watch("cam"), 0);
    ASSERT_EQ(RegisterCheckHeartBeat("cam", 3, getgid(), TakeOtherwise), 0);
    harness.Lose("cam");
    const std::vector<std::string> notices = Notices::Get().WaitFor(1);
    EXPECT_EQ(Unwatch("cam"), 0);
    EXPECT_NE(Unwatch("cam"), 0);
    // A watcher that was held up may have told the first callback meanwhile.
    EXPECT_THAT(notices, ElementsAre(testing::AnyOf("other cam", "cam 0 1")));
}

TEST(CheckHeartBeatContract, StopsWatchingEveryName) {
    const HeartHarness harness;
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
    ASSERT_EQ(Watch("cam"), 0);
    ASSERT_EQ(Watch("lidar"), 0);
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
    EXPECT_NE(Unwatch("cam"), 0);
    EXPECT_NE(Unwatch("lidar"), 0);
    EXPECT_EQ(Watch("cam"), 0);
}

TEST(CheckHeartBeatContract, MayBeStoppedFromItsOwnCallBack) {
    HeartHarness harness;
    ASSERT_EQ(RegisterCheckHeartBeat("cam", 3, getgid(), StopFromInside), 0);
    harness.Lose("cam");
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 1"));
    EXPECT_NE(Unwatch("cam"), 0);
}

TEST(CheckHeartBeatContract, RefusesNamesOfZeroAndOfMoreThan256BytesAndNulls) {
    const HeartHarness harness;
    EXPECT_NE(Watch(""), 0);
    EXPECT_NE(Watch(std::string(257, 'n')), 0);
    EXPECT_NE(RegisterCheckHeartBeat(nullptr, 3, getgid(), Take), 0);
    EXPECT_NE(RegisterCheckHeartBeat("cam", 3, getgid(), nullptr), 0);
    EXPECT_NE(UnregisterCheckHeartBeat(nullptr, 3), 0);
    EXPECT_EQ(Watch(std::string(256, 'n')), 0);
}

}  // namespace
