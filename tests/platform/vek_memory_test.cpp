// Whether hostile clients make the service's process grow. Belongs to a build without sanitizers, whose memory says
// nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/vek.h"
#include "tests/platform/vek_test_kit.h"

using VekTest::Ask;
using VekTest::BusFixture;
using VekTest::BusFrame;
using VekTest::File;
using VekTest::InChild;
using VekTest::OpenFile;
using VekTest::RawSocket;

namespace {

constexpr int kWarmUpRounds = 100;
constexpr int kRounds = 2000;
// 52 bytes for each of the 80,000 connections. On a busy machine more of them are served at once than while it warmed
// up, which takes up to 2 MiB once and for all.
constexpr size_t kGrowthMax = size_t{4} << 20;

size_t ResidentBytes() {
    size_t total = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

/// One process that does everything wrong on more connections than it gets, and is gone.
std::string Misbehave(const std::string& servicePath, const std::string& queuePath) {
    std::vector<RawSocket> sockets;
    for (int i = 0; i < 40; ++i) {
        sockets.push_back(RawSocket::ConnectTo(i % 4 == 0 ? queuePath : servicePath));
        const RawSocket& socket = sockets.back();
        socket.Send(BusFrame(1, 1, 0, ""));
        switch (i % 8) {
            case 0:
                socket.Send(BusFrame(4, 0, 0, ""));
                break;
            case 1:
                socket.Send(std::string(65537, 'x'));
                break;
            case 2:
                socket.SendWithDescriptor(BusFrame(2, 6, 0, "x"), socket.Fd());
                break;
            case 3:
                socket.Send("half");
                break;
            default:
                for (int j = 0; j < 3; ++j) {
                    socket.Send(BusFrame(2, 6, 1, std::string(60000, 'x')));
                }
        }
    }
    return "done";
}

TEST_F(BusFixture, HostileClientsDoNotMakeTheServiceGrow) {
    service.onQueueOpen = [](VekQfsMgrFile* file) {
        const VEKShmPoolConfig config = {64, 64};
        VEKShmPoolHandle pool = nullptr;
        // Left to the bus to give back.
        return VEKShmRegisterPoolWithConfig(file, &config, &pool);
    };
    ASSERT_EQ(Register(), 0);
    ASSERT_EQ(RegisterQueue(), 0);
    std::atomic<bool> over{false};
    std::chrono::steady_clock::duration slowest{};
    int answers = 0;
    std::thread worker([&] {
        const File file = OpenFile();
        for (; !over; ++answers) {
            const auto begin = std::chrono::steady_clock::now();
            ASSERT_EQ(Ask(file, 9, "abc"), "9 cba");
            slowest = std::max(slowest, std::chrono::steady_clock::now() - begin);
        }
    });
    size_t before = 0;
    for (int round = 0; round < kWarmUpRounds + kRounds; ++round) {
        service.ForgetTold();
        before = round == kWarmUpRounds ? ResidentBytes() : before;
        EXPECT_EQ(InChild(0, [&] { return Misbehave(SocketPath(), SocketPath("events")); }), "done");
    }
    const size_t after = ResidentBytes();
    over = true;
    worker.join();
    RecordProperty("answers", answers);
    RecordProperty("slowest_us",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(slowest).count()));
    RecordProperty("growth", static_cast<int>(after) - static_cast<int>(before));
    std::printf("%d answers meanwhile, the slowest after %d us; growth %d KiB\n", answers,
                static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(slowest).count()),
                (static_cast<int>(after) - static_cast<int>(before)) / 1024);
    EXPECT_LT(after, before + kGrowthMax);
}

}  // namespace
