#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/include/vek.h"
#include "platform/posix/common_posix/unique_fd.h"
#include "tests/platform/vek_test_kit.h"

using VekTest::Ask;
using VekTest::BusFixture;
using VekTest::BusFrame;
using VekTest::ErrorFrame;
using VekTest::File;
using VekTest::Gate;
using VekTest::InChild;
using VekTest::OpenFile;
using VekTest::RawSocket;

namespace {

size_t OpenDescriptors() {
    size_t count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

std::string Number(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

/// A client that works while another one misbehaves.
class BusHostility : public BusFixture {
protected:
    BusHostility() {
        service.onQueueOpen = [this](VekQfsMgrFile* file) {
            const VEKShmPoolConfig config = {64, 64};
            return VEKShmRegisterPoolWithConfig(file, &config, &pool);
        };
        service.onQueueClose = [this](VekQfsMgrFile*) { return VEKShmDestroyPool(pool); };
        EXPECT_EQ(Register(), 0);
        EXPECT_EQ(RegisterQueue(), 0);
        worker = OpenFile();
    }

    void ExpectGoodService() { EXPECT_EQ(Ask(worker, 6, "abc"), "6 cba"); }

    /// The service ends the connection; whatever it says before does not count.
    static void ExpectEnded(const RawSocket& client) {
        std::optional<std::string> packet;
        do {
            packet = client.Receive();
        } while (packet && !packet->empty());
        EXPECT_EQ(packet, "");
    }

    /// Without the worker's.
    size_t Closes() const {
        const std::vector<std::string> told = service.Told();
        return static_cast<size_t>(std::count(told.begin(), told.end(), "close grpowner"));
    }

    VEKShmPoolHandle pool = nullptr;
    File worker;
};

TEST_F(BusHostility, RubbishAsTheFirstFrameEndsTheConnection) {
    const std::string rubbish[] = {
        "x",
        std::string(15, 'x'),
        std::string(16, '\xff'),
        std::string(4000, 'x'),
        std::string(65536, 'x'),
        std::string(65537, '\0'),
        BusFrame(1, 1, 0, "").substr(0, 15),
        BusFrame(1, 1, 0, "") + "x",
        BusFrame(1, 1, 0, "x"),
        BusFrame(1, 1, 7, ""),
        BusFrame(2, 6, 0, "x"),
        BusFrame(5, 1, 0, Number(0)),
        BusFrame(0, 0, 0, ""),
        BusFrame(0x101, 1, 0, ""),
        BusFrame(16, 1, 0, Number(0) + Number(0)),
    };
    for (const std::string& packet : rubbish) {
        const RawSocket client = Connect();
        ASSERT_TRUE(client.Send(packet));
        EXPECT_EQ(client.Receive(), "") << packet.size();
        ExpectGoodService();
    }
    EXPECT_EQ(service.Told().front(), "open grpowner");
    EXPECT_FALSE(service.Told().back() == "open grpowner");
}

TEST_F(BusHostility, AnotherVersionIsToldSo) {
    const RawSocket client = Connect();
    ASSERT_TRUE(client.Send(BusFrame(1, 2, 0, "")));
    EXPECT_EQ(client.Receive(), ErrorFrame(1, 2, EPROTONOSUPPORT));
    EXPECT_EQ(client.Receive(), "");
}

TEST_F(BusHostility, WrongRequestsEndTheConnectionAndCloseTheFile) {
    const std::string rubbish[] = {
        BusFrame(2, 6, 0, ""),
        BusFrame(2, 6, -1, "x"),
        BusFrame(2, 6, 0, "xy").substr(0, 17),
        BusFrame(2, 6, 0, "x") + std::string(65536, 'x'),
        BusFrame(3, 0, 0, std::string(8, '\0')),
        BusFrame(3, 65513, 0, std::string(8, '\0')),
        BusFrame(3, 5, 0, std::string(7, '\0')),
        BusFrame(1, 1, 0, ""),
        BusFrame(5, 1, 0, Number(0)),
        BusFrame(6, 0, 0, ""),
        BusFrame(17, 1, 0, Number(0) + Number(0)),
        BusFrame(0x102, 6, 1, "x"),
        BusFrame(0xffffffffU, 6, 1, "x"),
    };
    size_t closes = 0;
    for (const std::string& packet : rubbish) {
        const RawSocket client = OpenRaw();
        ASSERT_TRUE(client.Send(packet));
        EXPECT_EQ(client.Receive(), "") << packet.size();
        EXPECT_TRUE(service.IsTold("close grpowner", ++closes));
        ExpectGoodService();
    }
}

TEST_F(BusHostility, WrongWordsToAQueueEndTheConnection) {
    const std::string rubbish[] = {
        BusFrame(4, 0, 0, ""),        BusFrame(5, 0, 0, Number(0)),  BusFrame(5, 2, 0, Number(0)),
        BusFrame(5, 1, 0, Number(0)), BusFrame(5, 1, 0, Number(64)), BusFrame(5, 1, 0, Number(0xffffffffU)),
        BusFrame(5, 1, 0, "x"),       BusFrame(5, 1, 0, ""),
    };
    size_t closes = 0;
    for (const std::string& packet : rubbish) {
        const RawSocket client = OpenRaw("events");
        ASSERT_TRUE(client.Send(BusFrame(4, 0, 0, "")));
        EXPECT_EQ(client.Receive(), BusFrame(0x104, 0, 0, ""));
        EXPECT_TRUE(client.Receive());
        ASSERT_TRUE(client.Send(packet));
        EXPECT_EQ(client.Receive(), "") << packet.size();
        EXPECT_TRUE(service.IsTold("close events", ++closes));
    }
    ExpectGoodService();
}

TEST_F(BusHostility, AttachedDescriptorsEndTheConnectionAndGoNowhere) {
    const size_t before = OpenDescriptors();
    for (const char* when : {"first", "later"}) {
        const RawSocket client = when == std::string("first") ? Connect() : OpenRaw();
        const std::string packet = when == std::string("first") ? BusFrame(1, 1, 0, "") : BusFrame(2, 6, 0, "x");
        ASSERT_TRUE(client.SendWithDescriptor(packet, client.Fd()));
        EXPECT_EQ(client.Receive(), "") << when;
    }
    ExpectGoodService();
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_TRUE(TunorTest::WaitForLog("on grpowner: it attached descriptors"));
}

TEST_F(BusHostility, ADeadPeerInEveryStepHurtsNobody) {
    const Gate gate;
    service.onIoctl = [gate](unsigned int cmd, VEKIoctlArg* arg) {
        if (cmd == 5) {
            EXPECT_TRUE(gate.Wait());
        }
        std::reverse(static_cast<char*>(arg->addr), static_cast<char*>(arg->addr) + arg->size);
        return static_cast<int>(cmd);
    };
    Connect().Close();
    {
        const RawSocket asking = Connect();
        ASSERT_TRUE(asking.Send(BusFrame(1, 1, 0, "")));
    }
    OpenRaw().Close();
    {
        const RawSocket asking = OpenRaw();
        ASSERT_TRUE(asking.Send(BusFrame(2, 6, 0, std::string(65520, 'x'))));
    }
    {
        const RawSocket waiting = OpenRaw();
        ASSERT_TRUE(waiting.Send(BusFrame(2, 5, 0, "x")));
        ASSERT_TRUE(service.IsTold("ioctl 5"));
    }
    {
        const RawSocket twice = OpenRaw();
        ASSERT_TRUE(twice.Send(BusFrame(2, 5, 1, "x")));
        EXPECT_EQ(twice.Receive(), ErrorFrame(2, 5, ETIMEDOUT));
        ASSERT_TRUE(twice.Send(BusFrame(2, 5, 0, "never")));
    }
    {
        const RawSocket reader = OpenRaw("events");
        ASSERT_TRUE(reader.Send(BusFrame(4, 0, 0, "")));
    }
    ExpectGoodService();
    gate.Open();
    EXPECT_TRUE(service.IsTold("close events"));
    const std::vector<std::string> told = service.Told();
    const auto opens = std::count(told.begin(), told.end(), "open grpowner");
    EXPECT_TRUE(service.IsTold("close grpowner", static_cast<size_t>(opens) - 1)) << "all but the worker's";
    ExpectGoodService();
}

TEST_F(BusHostility, AClientThatNeverReadsItsAnswersLosesItsConnection) {
    const RawSocket client = OpenRaw();
    ASSERT_EQ(::fcntl(client.Fd(), F_SETFL, O_NONBLOCK), 0);
    // Each answer is as large as its request: the socket that holds them is full at some time, whatever its size.
    const std::string request = BusFrame(2, 6, 0, std::string(3904, 'x'));
    while (client.Send(request) || errno == EAGAIN) {
        ExpectGoodService();
    }
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << errno;
    EXPECT_TRUE(TunorTest::WaitForLog("on grpowner: it does not read its answers"));
    ExpectGoodService();
}

TEST_F(BusHostility, HundredConnectionsThatNeverReadLeaveRoomForOthers) {
    EXPECT_EQ(InChild(0,
                      [this] {
                          std::vector<RawSocket> idle;
                          for (int i = 0; i < 100; ++i) {
                              idle.push_back(Connect());
                              if (!idle.back().IsOpen() || !idle.back().Send(BusFrame(1, 1, 0, ""))) {
                                  break;
                              }
                          }
                          // The parent's file and one of a further process work meanwhile.
                          const std::string other = InChild(0, [] { return Ask(OpenFile(), 6, "abc"); });
                          return other + ", " + std::to_string(idle.size() > 15);
                      }),
              "6 cba, 1");
    ExpectGoodService();
    EXPECT_TRUE(TunorTest::WaitForLog(") to open grpowner: too many files are open"));
    // What is gone makes room.
    EXPECT_EQ(Ask(OpenFile(), 6, "abc"), "6 cba");
}

TEST_F(BusHostility, AUserHasItsShareOfTheFilesOnly) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    ::setenv("PROCMGR_SS_RULES", folder.Write("ss.rules", "allow uid 54321 look\n").c_str(), 1);
    ASSERT_EQ(Register("shared"), 0);
    // Three processes of the user fill two shares of a process each: the third gets nothing.
    std::function<std::string(int)> fill = [&](int processes) {
        std::vector<RawSocket> open;
        for (int i = 0; i < 16; ++i) {
            open.push_back(Connect("shared"));
            if (!open.back().Send(BusFrame(1, 1, 0, "")) || open.back().Receive() != BusFrame(0x101, 20000, 0, "")) {
                return std::string("full");
            }
        }
        return processes == 1 ? std::string("room") : InChild(0, [&] { return fill(processes - 1); });
    };
    EXPECT_EQ(InChild(54321, [&] { return fill(2); }), "room");
    EXPECT_EQ(InChild(54321, [&] { return fill(3); }), "full");
    EXPECT_EQ(Ask(OpenFile("shared"), 6, "abc"), "6 cba");
}

TEST_F(BusHostility, AFloodOfRefusedAndRandomFramesDoesNotDelayOthers) {
    // Fixed seed: the same frames every time.
    std::mt19937 random(20240229);
    const auto pick = [&](uint32_t count) { return static_cast<uint32_t>(random() % count); };
    for (int i = 0; i < 400; ++i) {
        const RawSocket client = i % 2 == 0 ? Connect() : OpenRaw();
        const size_t frames = random() % 5 + 1;
        for (size_t j = 0; j < frames; ++j) {
            std::string packet(random() % 64, '\0');
            std::generate(packet.begin(), packet.end(), [&] { return static_cast<char>(random() % 7); });
            if (random() % 2 == 0) {
                packet = BusFrame(pick(8), pick(12), static_cast<int32_t>(pick(3)), packet);
            }
            static_cast<void>(client.Send(packet));
        }
        if (i % 20 == 0) {
            ExpectGoodService();
        }
    }
    ExpectGoodService();
    const std::vector<std::string> lines = TunorTest::LogLines();
    EXPECT_LT(lines.size(), 200U) << "strangers do not fill the log";
}

TEST_F(BusHostility, ClientsThatComeAndGoLeaveNothingBehind) {
    const auto round = [&] {
        const RawSocket rubbish = Connect();
        static_cast<void>(rubbish.Send("rubbish"));
        ExpectEnded(rubbish);
        EXPECT_EQ(Ask(OpenFile(), 6, "abc"), "6 cba");
        const VekTest::Queue queue = VekTest::OpenQueue();
    };
    round();
    ASSERT_TRUE(service.IsTold("close events"));
    const size_t before = OpenDescriptors();
    for (size_t i = 2; i <= 200; ++i) {
        round();
        ASSERT_TRUE(service.IsTold("close events", i));
        ASSERT_TRUE(service.IsTold("close grpowner", i));
    }
    // The reader removes a file after its close was told; the next round is behind that.
    round();
    EXPECT_LE(OpenDescriptors(), before + 6);
}

TEST_F(BusHostility, WithoutAFreeDescriptorTheServiceWaitsAndRecovers) {
    const RawSocket starved = Connect();
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    ExpectGoodService();
    // Our end of a connection is made first, then there is no descriptor for the service's end.
    std::vector<ProcMgr::UniqueFd> fill;
    const RawSocket late(ProcMgr::UniqueFd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)));
    rlimit none = before;
    none.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    for (int fd = ::dup(0); fd >= 0; fd = ::dup(0)) {
        fill.emplace_back(fd);
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    SocketPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::connect(late.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_TRUE(late.Send(BusFrame(1, 1, 0, "")));
    ExpectGoodService();
    fill.clear();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(late.Receive(), BusFrame(0x101, kServiceTimeoutMs, 0, ""));
}

}  // namespace
