#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/vek.h"
#include "tests/platform/vek_test_kit.h"

using VekTest::Ask;
using VekTest::BusFixture;
using VekTest::BusFrame;
using VekTest::File;
using VekTest::NextEvent;
using VekTest::OpenFile;
using VekTest::OpenQueue;
using VekTest::Queue;
using VekTest::RawSocket;

namespace {

constexpr int kThreads = 6;
constexpr int kRounds = 60;

void InThreads(const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&work, i] { work(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(BusFixture, ManyClientsGetTheirOwnAnswers) {
    ASSERT_EQ(Register(), 0);
    InThreads([](int thread) {
        const File file = OpenFile();
        for (int i = 0; i < kRounds; ++i) {
            const std::string text = std::to_string(thread) + ":" + std::to_string(i);
            EXPECT_EQ(Ask(file, static_cast<uint32_t>(i), text),
                      std::to_string(i) + " " + std::string(text.rbegin(), text.rend()));
        }
    });
}

TEST_F(BusFixture, ThreadsThatShareAFileTakeTurns) {
    std::atomic<int> inside{0};
    service.onIoctl = [&](unsigned int cmd, VEKIoctlArg*) {
        EXPECT_EQ(inside.fetch_add(1), 0);
        inside.fetch_sub(1);
        return static_cast<int>(cmd);
    };
    ASSERT_EQ(Register(), 0);
    const File file = OpenFile();
    InThreads([&](int thread) {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(Ask(file, static_cast<uint32_t>(thread), "x"), std::to_string(thread) + " x");
        }
    });
}

TEST_F(BusFixture, RegistrationsAndRequestsMeet) {
    ASSERT_EQ(Register(), 0);
    InThreads([&](int thread) {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(Register(), 0);
            EXPECT_EQ(Ask(OpenFile(), static_cast<uint32_t>(thread), "ab"), std::to_string(thread) + " ba");
        }
    });
}

TEST_F(BusFixture, ClientsThatDieMeetClientsThatWork) {
    ASSERT_EQ(Register(), 0);
    InThreads([&](int thread) {
        for (int i = 0; i < kRounds; ++i) {
            if (thread % 2 == 0) {
                const RawSocket client = OpenRaw();
                EXPECT_TRUE(client.Send(BusFrame(2, 6, i % 3, "abc")));
                continue;
            }
            EXPECT_EQ(Ask(OpenFile(), 6, "abc"), "6 cba");
        }
    });
}

TEST_F(BusFixture, TimeoutsMeetAnswers) {
    service.onIoctl = [](unsigned int cmd, VEKIoctlArg*) {
        std::this_thread::yield();
        return static_cast<int>(cmd);
    };
    ASSERT_EQ(Register(), 0);
    InThreads([&](int) {
        const File file = OpenFile();
        for (int i = 0; i < kRounds; ++i) {
            const std::string answer = Ask(file, 6, "x", 1);
            EXPECT_TRUE(answer == "6 x" || answer == "ETIMEDOUT" || answer == "EBUSY") << answer;
        }
        EXPECT_EQ(Ask(file, 7, "x"), "7 x");
    });
}

/// As the group owner does it: the files and their pools under one lock.
class EventSource {
public:
    int Open(VekQfsMgrFile* file) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const VEKShmPoolConfig config = {64, 64};
        VEKShmPoolHandle pool = nullptr;
        const int error = VEKShmRegisterPoolWithConfig(file, &config, &pool);
        if (error == 0) {
            pools_[file] = pool;
        }
        return error;
    }

    int Close(VekQfsMgrFile* file) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const int error = VEKShmDestroyPool(pools_[file]);
        pools_.erase(file);
        return error;
    }

    void Report(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [file, pool] : pools_) {
            VEKShmBlockHandle block = nullptr;
            if (VEKQfsFileQueue(file) == nullptr || VEKShmHandleMalloc(pool, text.size(), &block) != 0) {
                continue;
            }
            EXPECT_EQ(VEKShmWrite(block, text.data(), text.size()), 0);
            if (VEKDataEnqueue(VEKQfsFileQueue(file), block) < 0) {
                EXPECT_EQ(VEKShmFree(block), 0);
            }
        }
    }

private:
    std::mutex mutex_;
    std::map<VekQfsMgrFile*, VEKShmPoolHandle> pools_;
};

TEST_F(BusFixture, EventsMeetReadersThatComeAndGo) {
    EventSource source;
    service.onQueueOpen = [&](VekQfsMgrFile* file) { return source.Open(file); };
    service.onQueueClose = [&](VekQfsMgrFile* file) { return source.Close(file); };
    const VekTest::SilentAfterwards silent;
    ASSERT_EQ(RegisterQueue(), 0);
    std::atomic<bool> over{false};
    std::thread reporter([&] {
        while (!over) {
            source.Report("123");
        }
    });
    InThreads([&](int) {
        for (int i = 0; i < kRounds / 6; ++i) {
            const Queue queue = OpenQueue();
            for (int j = 0; j < 5; ++j) {
                EXPECT_EQ(NextEvent(queue), "123");
            }
        }
    });
    over = true;
    reporter.join();
    EXPECT_TRUE(service.IsTold("close events", kThreads * (kRounds / 6)));
}

TEST_F(BusFixture, ReadersOfOneQueueShareItsEvents) {
    EventSource source;
    service.onQueueOpen = [&](VekQfsMgrFile* file) { return source.Open(file); };
    service.onQueueClose = [&](VekQfsMgrFile* file) { return source.Close(file); };
    const VekTest::SilentAfterwards silent;
    ASSERT_EQ(RegisterQueue(), 0);
    const Queue queue = OpenQueue();
    for (int i = 0; i < kThreads * 8; ++i) {
        source.Report(std::to_string(i));
    }
    InThreads([&](int) {
        for (int i = 0; i < 8; ++i) {
            EXPECT_NE(NextEvent(queue), "ETIMEDOUT");
        }
    });
    EXPECT_EQ(NextEvent(queue, 0), "ETIMEDOUT");
}

}  // namespace
