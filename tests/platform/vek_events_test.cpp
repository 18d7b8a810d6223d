#include <gmock/gmock.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/vek.h"
#include "tests/platform/vek_test_kit.h"

using testing::ElementsAre;
using VekTest::BusFixture;
using VekTest::BusFrame;
using VekTest::ErrorFrame;
using VekTest::NextEvent;
using VekTest::OpenQueue;
using VekTest::Queue;
using VekTest::RawSocket;

namespace {

std::string Numbers(const std::vector<uint32_t>& numbers) {
    return std::string(reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(uint32_t));
}

/// A queue that makes a pool for each file.
class BusEvents : public BusFixture {
protected:
    BusEvents() {
        service.onQueueOpen = [this](VekQfsMgrFile* opened) {
            EXPECT_EQ(VEKQfsFileQueue(opened), nullptr);
            file = opened;
            return MakePool();
        };
        service.onQueueClose = [this](VekQfsMgrFile* closed) {
            EXPECT_EQ(VEKQfsFileQueue(closed), nullptr);
            return closed == file ? VEKShmDestroyPool(pool) : 0;
        };
        EXPECT_EQ(RegisterQueue(), 0);
    }

    int MakePool() {
        const VEKShmPoolConfig config = {64, 64};
        return VEKShmRegisterPoolWithConfig(file, &config, &pool);
    }

    bool HasRoom() const {
        VEKShmBlockHandle block = nullptr;
        return VEKShmHandleMalloc(pool, 1, &block) == 0 && VEKShmFree(block) == 0;
    }

    VEKShmBlockHandle MakeBlock(const std::string& text) const {
        VEKShmBlockHandle block = nullptr;
        EXPECT_EQ(VEKShmHandleMalloc(pool, text.size(), &block), 0);
        EXPECT_EQ(VEKShmWrite(block, text.data(), text.size()), 0);
        return block;
    }

    int Report(const std::string& text) const { return VEKDataEnqueue(VEKQfsFileQueue(file), MakeBlock(text)); }

    /// A raw client that reads the queue, with its pool's descriptor left behind.
    RawSocket ReadRaw() const {
        RawSocket client = OpenRaw("events");
        EXPECT_TRUE(client.Send(BusFrame(4, 0, 0, "")));
        EXPECT_EQ(client.Receive(), BusFrame(0x104, 0, 0, ""));
        EXPECT_EQ(client.Receive(), BusFrame(16, 1, 0, Numbers({64, 64})));
        return client;
    }

    VekQfsMgrFile* file = nullptr;
    VEKShmPoolHandle pool = nullptr;
};

TEST_F(BusEvents, EventsArriveInOrderWithoutATerminator) {
    const Queue queue = OpenQueue();
    ASSERT_EQ(Report("1"), 0);
    ASSERT_EQ(Report("4294967295"), 0);
    ASSERT_EQ(Report(""), 0);
    EXPECT_EQ(NextEvent(queue), "1");
    EXPECT_EQ(NextEvent(queue), "4294967295");
    EXPECT_EQ(NextEvent(queue), "");
    EXPECT_EQ(NextEvent(queue, 0), "ETIMEDOUT");
}

TEST_F(BusEvents, TheQueueHandleAppearsWhenTheReaderOpensTheQueueAndGoesWithHim) {
    const RawSocket client = OpenRaw("events");
    ASSERT_TRUE(service.IsTold("open events"));
    EXPECT_EQ(VEKQfsFileQueue(file), nullptr);
    EXPECT_LT(VEKDataEnqueue(VEKQfsFileQueue(file), MakeBlock("1")), 0);
    ASSERT_TRUE(client.Send(BusFrame(4, 0, 0, "")));
    EXPECT_EQ(client.Receive(), BusFrame(0x104, 0, 0, ""));
    EXPECT_NE(VEKQfsFileQueue(file), nullptr);
    EXPECT_EQ(VEKQfsFileQueue(nullptr), nullptr);
    // A frame that is none: the service ends the connection and closes the file, which has no queue any more.
    ASSERT_TRUE(client.Send("x"));
    EXPECT_TRUE(service.IsTold("close events"));
}

TEST_F(BusEvents, AnEventTravelsAsBlockAndLengthOnly) {
    const RawSocket client = ReadRaw();
    const VEKQueueHandle queue = VEKQfsFileQueue(file);
    ASSERT_EQ(VEKDataEnqueue(queue, MakeBlock("200")), 0);
    ASSERT_EQ(VEKDataEnqueue(queue, MakeBlock("7")), 0);
    EXPECT_EQ(client.Receive(), BusFrame(17, 1, 0, Numbers({0, 3})));
    EXPECT_EQ(client.Receive(), BusFrame(17, 1, 0, Numbers({1, 1})));
    ASSERT_TRUE(client.Send(BusFrame(5, 1, 0, Numbers({0}))));
    // The reader takes frames in order: when this one is refused, the block is back.
    ASSERT_TRUE(client.Send(BusFrame(2, 6, 0, "x")));
    EXPECT_EQ(client.Receive(), ErrorFrame(2, 6, ENOTTY));
    ASSERT_EQ(VEKDataEnqueue(queue, MakeBlock("12")), 0);
    EXPECT_EQ(client.Receive(), BusFrame(17, 1, 0, Numbers({0, 2})));
}

TEST_F(BusEvents, AReaderThatHandsNothingBackGets64EventsAndCostsNoMore) {
    const RawSocket client = ReadRaw();
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(Report(std::to_string(i)), 0) << i;
    }
    VEKShmBlockHandle block = nullptr;
    EXPECT_EQ(VEKShmHandleMalloc(pool, 1, &block), ENOMEM);
}

TEST_F(BusEvents, TheQueueIsBoundedWhateverThePoolIs) {
    service.onQueueOpen = [this](VekQfsMgrFile* opened) {
        file = opened;
        const VEKShmPoolConfig config = {16, 1000};
        return VEKShmRegisterPoolWithConfig(file, &config, &pool);
    };
    const Queue queue = OpenQueue();
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(Report("x"), 0) << i;
    }
    const VEKShmBlockHandle block = MakeBlock("last");
    EXPECT_EQ(VEKDataEnqueue(VEKQfsFileQueue(file), block), -EAGAIN);
    EXPECT_EQ(VEKShmFree(block), 0) << "it stayed the caller's";
    EXPECT_EQ(NextEvent(queue), "x");
}

TEST_F(BusEvents, AnEventThatDoesNotFitWaitsForTheNextCall) {
    const Queue queue = OpenQueue();
    ASSERT_EQ(Report("12345"), 0);
    char small[4] = {};
    size_t size = 0;
    EXPECT_EQ(ProcmgrSsWaitEvent(queue.get(), 30000, small, sizeof(small), &size), -EMSGSIZE);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(NextEvent(queue), "12345");
}

TEST_F(BusEvents, TheDescriptorIsReadableWhenAnEventWaits) {
    const Queue queue = OpenQueue();
    ASSERT_EQ(Report("3"), 0);
    EXPECT_TRUE(TunorTest::WaitReadable(ProcmgrSsQueueFd(queue.get())));
    EXPECT_EQ(NextEvent(queue, 0), "3");
}

TEST_F(BusEvents, HandlesThatAreNoneAreRefused) {
    const Queue queue = OpenQueue();
    const VEKShmBlockHandle block = MakeBlock("1");
    VEKShmBlockHandle other = nullptr;
    const auto wild = reinterpret_cast<VEKShmPoolHandle>(uintptr_t{999999});
    EXPECT_EQ(VEKShmDestroyPool(nullptr), EINVAL);
    EXPECT_EQ(VEKShmDestroyPool(wild), EINVAL);
    EXPECT_EQ(VEKShmHandleMalloc(wild, 1, &other), EINVAL);
    EXPECT_EQ(VEKShmHandleMalloc(pool, 65, &other), EMSGSIZE);
    EXPECT_EQ(VEKShmHandleMalloc(pool, 1, nullptr), EINVAL);
    EXPECT_EQ(VEKShmWrite(block, "12", 2), EMSGSIZE);
    EXPECT_EQ(VEKShmWrite(block, nullptr, 1), EINVAL);
    EXPECT_EQ(VEKShmWrite(nullptr, "1", 1), EINVAL);
    EXPECT_EQ(VEKDataEnqueue(nullptr, block), -EINVAL);
    EXPECT_EQ(VEKDataEnqueue(VEKQfsFileQueue(file), nullptr), -EINVAL);
    EXPECT_EQ(VEKShmFree(block), 0);
    EXPECT_EQ(VEKShmFree(block), EINVAL);
    EXPECT_EQ(VEKDataEnqueue(VEKQfsFileQueue(file), block), -EINVAL);
    EXPECT_EQ(MakePool(), EEXIST) << "one pool at a time";
    const VEKShmPoolConfig config = {64, 64};
    VekQfsMgrFile stranger = {"stranger", nullptr, nullptr};
    VEKShmPoolHandle none = nullptr;
    EXPECT_EQ(VEKShmRegisterPoolWithConfig(&stranger, &config, &none), EINVAL);
    EXPECT_EQ(VEKShmRegisterPoolWithConfig(nullptr, &config, &none), EINVAL);
    EXPECT_EQ(VEKShmRegisterPoolWithConfig(file, nullptr, &none), EINVAL);
}

TEST_F(BusEvents, ANewPoolOfAnOpenQueueIsGivenToTheReader) {
    const Queue queue = OpenQueue();
    ASSERT_EQ(Report("old"), 0);
    ASSERT_EQ(VEKShmDestroyPool(pool), 0);
    EXPECT_EQ(VEKShmDestroyPool(pool), EINVAL);
    ASSERT_EQ(MakePool(), 0);
    ASSERT_EQ(Report("new"), 0);
    EXPECT_EQ(NextEvent(queue), "old") << "what is in the queue stays readable";
    EXPECT_EQ(NextEvent(queue), "new");
    ASSERT_EQ(Report("more"), 0);
    EXPECT_EQ(NextEvent(queue), "more");
}

TEST_F(BusEvents, APoolThatTheServiceForgetsGoesWithTheFile) {
    service.onQueueClose = nullptr;
    { const Queue queue = OpenQueue(); }
    ASSERT_TRUE(service.IsTold("close events"));
    // The next file is removed behind the first one.
    { const Queue queue = OpenQueue(); }
    const VEKShmPoolHandle last = pool;
    ASSERT_TRUE(service.IsTold("close events", 2));
    { const Queue queue = OpenQueue(); }
    EXPECT_NE(last, pool);
}

TEST_F(BusEvents, TheRightBytesFollowsABlockThatIsUsedAgain) {
    const Queue queue = OpenQueue();
    for (int round = 0; round < 500; ++round) {
        // What the reader handed back is free when the service has taken note of it.
        while (!HasRoom()) {
            std::this_thread::yield();
        }
        ASSERT_EQ(Report(std::to_string(round)), 0);
        ASSERT_EQ(NextEvent(queue), std::to_string(round));
    }
}

TEST_F(BusEvents, WhatWasSentBeforeTheConnectionWasLostIsStillRead) {
    const Queue queue = OpenQueue();
    ASSERT_EQ(Report("1"), 0);
    ASSERT_EQ(Report("2"), 0);
    // A second request for the queue breaks the rules: the service ends the connection.
    const std::string again = BusFrame(4, 0, 0, "");
    ASSERT_EQ(::send(ProcmgrSsQueueFd(queue.get()), again.data(), again.size(), MSG_NOSIGNAL), 16);
    ASSERT_TRUE(service.IsTold("close events"));
    EXPECT_EQ(NextEvent(queue), "1");
    EXPECT_EQ(NextEvent(queue), "2");
    EXPECT_EQ(NextEvent(queue), "EPIPE");
    EXPECT_EQ(NextEvent(queue), "EPIPE");
}

TEST_F(BusEvents, AServiceIsNoQueueAndAQueueIsNoService) {
    ASSERT_EQ(Register(), 0);
    ProcmgrSsQueue* queue = nullptr;
    EXPECT_EQ(ProcmgrSsOpenQueue(nullptr, "grpowner", 30000, &queue), -ENOTTY);
    EXPECT_EQ(queue, nullptr);
    EXPECT_EQ(VekTest::Ask(VekTest::OpenFile("events"), 6, "x"), "ENOTTY");
}

TEST_F(BusEvents, EventsGoToEachReader) {
    std::vector<VekQfsMgrFile*> files;
    std::vector<VEKShmPoolHandle> pools;
    service.onQueueOpen = [&](VekQfsMgrFile* opened) {
        const VEKShmPoolConfig config = {64, 64};
        files.push_back(opened);
        pools.push_back(nullptr);
        return VEKShmRegisterPoolWithConfig(opened, &config, &pools.back());
    };
    service.onQueueClose = nullptr;
    const VekTest::SilentAfterwards silent;
    const Queue first = OpenQueue();
    const Queue second = OpenQueue();
    for (size_t i = 0; i < files.size(); ++i) {
        pool = pools[i];
        ASSERT_EQ(VEKDataEnqueue(VEKQfsFileQueue(files[i]), MakeBlock("9")), 0);
    }
    EXPECT_EQ(NextEvent(first), "9");
    EXPECT_EQ(NextEvent(second), "9");
    // A block of one file's pool is no event of another file.
    EXPECT_EQ(VEKDataEnqueue(VEKQfsFileQueue(files[0]), MakeBlock("9")), -EINVAL);
}

}  // namespace
