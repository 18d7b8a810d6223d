#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "common/app_records.h"
#include "include/ss_to_owner_server.h"
#include "ss_server/request_gate.h"
#include "ss_server/ss_to_owner_server_impl.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/ss_server/ss_requests.h"

using ProcMgr::RequestGate;
using ProcMgr::SsToOwnerServerImpl;

namespace {

constexpr int kRounds = 200;

}  // namespace

TEST(SsToOwnerServer, RequestsAreAnsweredWhileCallbacksAreBeingReplaced) {
    SsToOwnerServer& server = SsToOwnerServer::GetInstance();
    ASSERT_EQ(server.RegDumpCallBackImpl([] { return true; }, "res"), 0);
    std::atomic<bool> isDone{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 3; ++i) {
        clients.emplace_back([&] {
            while (!isDone.load()) {
                IoctlBuffer buffer("");
                const bool isRight = buffer.Send(4) == 9 && buffer.Bytes(12, 1) == "1";
                wrong += isRight ? 0 : 1;
            }
        });
    }
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_EQ(server.RegDumpCallBackImpl([] { return true; }, "res"), 0);
        EXPECT_EQ(server.RegSetSystemStateTimeoutCallBackImpl([](int, int) { return true; }, "res"), 0);
    }
    isDone = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST(SsToOwnerServer, RequestIsAnsweredWhileAnotherOneIsHeldUp) {
    SsToOwnerServer& server = SsToOwnerServer::GetInstance();
    std::mutex mutex;
    std::condition_variable changed;
    bool isInside = false;
    bool mayLeave = false;
    ASSERT_EQ(server.RegStopAllAppCallBackImpl(
                  [&] {
                      std::unique_lock<std::mutex> lock(mutex);
                      isInside = true;
                      changed.notify_all();
                      changed.wait(lock, [&] { return mayLeave; });
                      return true;
                  },
                  "res"),
              0);
    ASSERT_EQ(server.RegDumpCallBackImpl([] { return true; }, "res"), 0);
    std::thread stopper([] {
        IoctlBuffer buffer("");
        EXPECT_EQ(buffer.Send(5), 9);
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return isInside; });
    }
    IoctlBuffer buffer("");
    EXPECT_EQ(buffer.Send(4), 9);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        mayLeave = true;
    }
    changed.notify_all();
    stopper.join();
}

TEST(StopServing, WaitsForTheRequestUnderWay) {
    std::promise<void> inside;
    std::atomic<bool> isStopping{false};
    std::atomic<bool> isAnswered{false};
    ASSERT_EQ(SsToOwnerServer::GetInstance().RegDumpCallBackImpl(
                  [&] {
                      inside.set_value();
                      while (!isStopping.load()) {
                          std::this_thread::yield();
                      }
                      return true;
                  },
                  "res"),
              0);
    std::thread client([&] {
        IoctlBuffer buffer("");
        isAnswered = buffer.Send(4) == 9;
    });
    std::thread stopper([&] {
        inside.get_future().wait();
        isStopping = true;
        SsToOwnerServerImpl::StopServing();
    });
    stopper.join();
    client.join();
    EXPECT_TRUE(isAnswered.load());
}

TEST(RequestGate, IsClosedOnlyWhenEverybodyIsOut) {
    RequestGate gate;
    std::atomic<int> inside{0};
    std::vector<std::thread> visitors;
    for (int i = 0; i < 4; ++i) {
        visitors.emplace_back([&] {
            for (;;) {
                const RequestGate::Visit visit(gate);
                if (!visit.IsInside()) {
                    return;
                }
                ++inside;
                std::this_thread::yield();
                --inside;
            }
        });
    }
    gate.Close();
    EXPECT_EQ(inside.load(), 0);
    for (std::thread& visitor : visitors) {
        visitor.join();
    }
}

TEST(ReportSysEvent, GoesOnWhileFilesOpenAndClose) {
    SsToOwnerServer& server = SsToOwnerServer::GetInstance();
    std::atomic<bool> isDone{false};
    std::thread reporter([&] {
        while (!isDone.load()) {
            EXPECT_EQ(server.ReportSysEvent({7}), 0);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        VekQfsMgrFile file{"f", FakeVek::Get().MakeQueue(), nullptr};
        EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&file), 0);
        EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerClose(&file), 0);
    }
    isDone = true;
    reporter.join();
    EXPECT_EQ(FakeVek::Get().PoolCount(), 0U);
    EXPECT_EQ(FakeVek::Get().BlockCount(), 0U);
}
