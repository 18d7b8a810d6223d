#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::Each;
using testing::SizeIs;

constexpr size_t kThreads = 4;

// Runs `task` in several threads that all begin at the same moment.
void InThreads(const std::function<void(size_t thread)>& task) {
    std::promise<void> begin;
    const std::shared_future<void> begun = begin.get_future().share();
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&task, begun, thread] {
            begun.wait();
            task(thread);
        });
    }
    begin.set_value();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ConcurrentIsOk, LeavesOnePipeOpenAndClosesTheOthers) {
    InThreads([](size_t /*thread*/) { EXPECT_TRUE(Agent().IsOk()); });

    EXPECT_EQ(FakePipe::Get().Closed().size(), FakePipe::Get().Opens().size() - 1);
    ASSERT_EQ(Agent().TermApp({{"cam"}}), 0U);
    EXPECT_TRUE(FakePipe::Get().IsOpen(FakePipe::Get().AllSent().front().fd));
}

TEST(ConcurrentRequests, SendEveryPieceWhole) {
    ASSERT_TRUE(Agent().IsOk());
    InThreads([](size_t thread) {
        for (int round = 0; round < 25; ++round) {
            EXPECT_EQ(Agent().TermApp({{"app" + std::to_string(thread)}}), 0U);
            EXPECT_EQ(Agent().QueryAppState({"app" + std::to_string(thread)}), 0U);
            EXPECT_EQ(Agent().LoadStartupCfgInfo({{}, "path" + std::to_string(thread)}), 0U);
        }
    });
    std::map<std::string, int> counts;
    for (const std::string& text : SentTexts()) {
        ++counts[text];
    }
    EXPECT_THAT(counts, SizeIs(3 * kThreads));
    EXPECT_THAT(counts, Each(testing::Pair(testing::_, 25)));
}

TEST(ConcurrentRegistration, IsSafeWhileRequestsAreDelivered) {
    std::atomic<int> reports{0};
    std::atomic<int> answers{0};
    const auto registerBoth = [&reports, &answers] {
        EXPECT_TRUE(Agent().RegAppStateChangeCallBackImpl([&reports](auto&&...) { ++reports; }));
        EXPECT_TRUE(Agent().RegQueryAppStateCallBackImpl([&answers](auto&&...) { ++answers; }));
    };
    registerBoth();
    InThreads([&registerBoth](size_t thread) {
        for (int round = 0; round < 50; ++round) {
            if (thread % 2 == 0) {
                registerBoth();
            } else {
                FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#0#0#"));
                FakePipe::Get().DeliverRecord(Record(10, U32(1) + Sized("cam") + U32(0)));
            }
        }
    });
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_EQ(reports, 100);
    EXPECT_EQ(answers, 100);
    Agent().ClosePipe();
}

TEST(ConcurrentOpening, LetsRequestsThroughOnlyWhenThePipeIsUsable) {
    std::atomic<int> sent{0};
    InThreads([&sent](size_t thread) {
        if (thread == 0) {
            EXPECT_TRUE(Agent().IsOk());
            return;
        }
        for (int round = 0; round < 50; ++round) {
            const uint32_t status = Agent().TermApp({{"cam"}});
            EXPECT_TRUE(status == 0 || status == 0xF10501U) << status;
            sent += status == 0 ? 1 : 0;
        }
    });
    EXPECT_THAT(FakePipe::Get().AllSent(), SizeIs(static_cast<size_t>(sent.load())));
}

TEST(ConcurrentOwnerHeart, IsRegisteredOnceAndStoppedOnce) {
    setenv("PROC_NAME", "owner", 1);
    InThreads([](size_t /*thread*/) { Agent().StartOwnerHeart(); });
    InThreads([](size_t /*thread*/) { Agent().StopOwnerHeart(); });
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), testing::ElementsAre("send owner to PROCMGR", "stop sending"));
}

}  // namespace
}  // namespace ProcMgr
