#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "platform/include/vek.h"
#include "tests/contract/bus_harness.h"

namespace {

using testing::ElementsAre;

/// The service and the queue of these tests, and what came to them.
class Recorder {
public:
    static Recorder& Get() {
        static Recorder& recorder = *new Recorder;
        return recorder;
    }

    void See(const std::string& line) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            seen_.push_back(line);
        }
        changed_.notify_all();
    }

    std::vector<std::string> WaitForSeen(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(30),
                            [&] { return seen_.size() >= count; });
        return seen_;
    }

    VekQfsMgrFile* file = nullptr;
    VEKShmPoolHandle pool = nullptr;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> seen_;
};

std::string NameOf(const char* fileName) {
    return fileName == nullptr ? "" : fileName;
}

int Open(VEKMgrFile* file) {
    Recorder::Get().See("open " + NameOf(file->fileName));
    return 0;
}

long Read(VEKMgrFile* /*file*/, char* /*buffer*/, size_t /*size*/, long* /*offset*/) {
    return 0;
}

int Close(VEKMgrFile* file) {
    Recorder::Get().See("close " + NameOf(file->fileName));
    return 0;
}

int Ioctl(VEKMgrFile* file, unsigned int cmd, VEKIoctlArg* arg) {
    std::string bytes(static_cast<const char*>(arg->addr), arg->size);
    Recorder::Get().See("ioctl " + std::to_string(cmd) + " " + bytes + " of " + NameOf(file->fileName));
    std::reverse_copy(bytes.begin(), bytes.end(), static_cast<char*>(arg->addr));
    return static_cast<int>(cmd) - 10;
}

const VEKServiceOps kService = {Open, Read, Close, Ioctl};

int OpenQueue(VekQfsMgrFile* file) {
    const VEKShmPoolConfig config = {64, 64};
    Recorder::Get().file = file;
    Recorder::Get().See(VEKQfsFileQueue(file) == nullptr ? "open, not read" : "open, read");
    return VEKShmRegisterPoolWithConfig(file, &config, &Recorder::Get().pool);
}

int CloseQueue(VekQfsMgrFile* file) {
    const int result = VEKShmDestroyPool(Recorder::Get().pool);
    Recorder::Get().See(file == Recorder::Get().file && result == 0 ? "close" : "close of something else");
    return 0;
}

const VEKQueueOps kQueue = {OpenQueue, CloseQueue};

class Bus : public testing::Test {
protected:
    void ReadQueue() {
        ASSERT_EQ(VEKRegisterQueueService("events", 5000, &kQueue), 0);
        harness.OpenQueue("events");
    }

    static VEKShmBlockHandle TakeBlock(const std::string& text) {
        VEKShmBlockHandle block = nullptr;
        EXPECT_EQ(VEKShmHandleMalloc(Recorder::Get().pool, text.size(), &block), 0);
        EXPECT_EQ(VEKShmWrite(block, text.data(), text.size()), 0);
        return block;
    }

    static VEKQueueHandle Queue() { return VEKQfsFileQueue(Recorder::Get().file); }

    BusHarness harness;
};

TEST_F(Bus, RequestReachesTheServiceAndItsBufferComesBack) {
    ASSERT_EQ(VEKRegisterService("owner", &kService, 5000), 0);
    std::string buffer = "abc";
    EXPECT_EQ(harness.Ask("owner", 16, buffer), 6);
    EXPECT_EQ(buffer, "cba");
    EXPECT_THAT(Recorder::Get().WaitForSeen(3), ElementsAre("open owner", "ioctl 16 abc of owner", "close owner"));
}

TEST_F(Bus, NegativeResultIsTheServicesOwn) {
    ASSERT_EQ(VEKRegisterService("owner", &kService, 5000), 0);
    std::string buffer = "ab";
    EXPECT_EQ(harness.Ask("owner", 0, buffer), -10);
    EXPECT_EQ(buffer, "ba");
}

TEST_F(Bus, RegisteringALiveNameAgainReplacesItsEntryPoints) {
    ASSERT_EQ(VEKRegisterService("owner", &kService, 5000), 0);
    VEKServiceOps other = kService;
    other.ioctl = [](VEKMgrFile*, unsigned int, VEKIoctlArg*) { return 77; };
    ASSERT_EQ(VEKRegisterService("owner", &other, 5000), 0);
    // Name and entry points were copied.
    other.ioctl = Ioctl;
    std::string buffer = "ab";
    EXPECT_EQ(harness.Ask("owner", 16, buffer), 77);
    EXPECT_EQ(buffer, "ab");
}

TEST_F(Bus, EntryPointMayCallTheBus) {
    VEKServiceOps ops = kService;
    ops.ioctl = [](VEKMgrFile*, unsigned int, VEKIoctlArg*) {
        return VEKRegisterService("owner", &kService, 5000) == 0 ? 1 : -1;
    };
    ASSERT_EQ(VEKRegisterService("owner", &ops, 5000), 0);
    std::string buffer = "ab";
    EXPECT_EQ(harness.Ask("owner", 16, buffer), 1);
    EXPECT_EQ(harness.Ask("owner", 16, buffer), 6);
}

TEST_F(Bus, QueueHandleIsThereFromTheTimeTheClientReadsUntilItGoes) {
    ReadQueue();
    EXPECT_NE(Queue(), nullptr);
    harness.CloseQueue();
    EXPECT_THAT(Recorder::Get().WaitForSeen(2), ElementsAre("open, not read", "close"));
}

TEST_F(Bus, EventIsTheBytesThatWereWritten) {
    ReadQueue();
    EXPECT_GE(VEKDataEnqueue(Queue(), TakeBlock("200")), 0);
    EXPECT_GE(VEKDataEnqueue(Queue(), TakeBlock("4294967295")), 0);
    EXPECT_EQ(harness.NextEvent(), "200");
    EXPECT_EQ(harness.NextEvent(), "4294967295");
}

TEST_F(Bus, BlockThatWasEnqueuedBelongsToTheQueue) {
    ReadQueue();
    const VEKShmBlockHandle block = TakeBlock("1");
    ASSERT_GE(VEKDataEnqueue(Queue(), block), 0);
    EXPECT_NE(VEKShmFree(block), 0);
    EXPECT_LT(VEKDataEnqueue(Queue(), block), 0);
}

TEST_F(Bus, BlockThatCouldNotBeEnqueuedStaysTheCallers) {
    ReadQueue();
    const VEKShmBlockHandle block = TakeBlock("1");
    EXPECT_LT(VEKDataEnqueue(nullptr, block), 0);
    EXPECT_EQ(VEKShmFree(block), 0);
    EXPECT_NE(VEKShmFree(block), 0);
}

TEST_F(Bus, SizesBeyondTheirBlockAreRefused) {
    ReadQueue();
    VEKShmBlockHandle block = nullptr;
    EXPECT_NE(VEKShmHandleMalloc(Recorder::Get().pool, 65, &block), 0);
    ASSERT_EQ(VEKShmHandleMalloc(Recorder::Get().pool, 64, &block), 0);
    EXPECT_EQ(VEKShmWrite(block, std::string(64, 'x').data(), 64), 0);
    EXPECT_NE(VEKShmWrite(block, std::string(65, 'x').data(), 65), 0);
    EXPECT_EQ(VEKShmFree(block), 0);
    ASSERT_EQ(VEKShmHandleMalloc(Recorder::Get().pool, 2, &block), 0);
    EXPECT_NE(VEKShmWrite(block, "123", 3), 0);
    EXPECT_EQ(VEKShmFree(block), 0);
}

TEST_F(Bus, PoolThatIsNotInUseIsRefused) {
    ReadQueue();
    VEKShmBlockHandle block = nullptr;
    EXPECT_NE(VEKShmHandleMalloc(nullptr, 1, &block), 0);
    EXPECT_NE(VEKShmDestroyPool(nullptr), 0);
    const VEKShmPoolHandle pool = Recorder::Get().pool;
    EXPECT_EQ(VEKShmDestroyPool(pool), 0);
    EXPECT_NE(VEKShmDestroyPool(pool), 0);
    EXPECT_NE(VEKShmHandleMalloc(pool, 1, &block), 0);
}

TEST_F(Bus, EventsThatAreInTheQueueOutliveTheirPool) {
    ReadQueue();
    ASSERT_GE(VEKDataEnqueue(Queue(), TakeBlock("1")), 0);
    ASSERT_EQ(VEKShmDestroyPool(Recorder::Get().pool), 0);
    EXPECT_EQ(harness.NextEvent(), "1");
}

}  // namespace
