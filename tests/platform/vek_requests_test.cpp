#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/common_posix/unique_fd.h"
#include "tests/platform/vek_test_kit.h"

using testing::ElementsAre;
using VekTest::Ask;
using VekTest::BusFixture;
using VekTest::BusFrame;
using VekTest::ErrorFrame;
using VekTest::File;
using VekTest::Gate;
using VekTest::OpenFile;
using VekTest::RawSocket;

namespace {

class BusRequests : public BusFixture {
protected:
    BusRequests() { EXPECT_EQ(Register(), 0); }

    /// Command 5 waits for the gate.
    void HoldStopAll(const Gate& gate) {
        service.onIoctl = [gate](unsigned int cmd, VEKIoctlArg* /*arg*/) {
            if (cmd == 5) {
                EXPECT_TRUE(gate.Wait());
            }
            return static_cast<int>(cmd);
        };
    }
};

TEST_F(BusRequests, AFileIsOpenedAskedAndClosed) {
    {
        const File file = OpenFile();
        EXPECT_EQ(Ask(file, 6, "abc"), "6 cba");
        EXPECT_EQ(Ask(file, 7, "xyz", 0), "7 zyx");
    }
    EXPECT_THAT(service.WaitForTold(4), ElementsAre("open grpowner", "ioctl 6", "ioctl 7", "close grpowner"));
}

TEST_F(BusRequests, AWholeBufferOf3904BytesTravelsBothWays) {
    const File file = OpenFile();
    std::string request(PROCMGR_SS_BUFFER_SIZE, 'a');
    request.front() = '<';
    request.back() = '>';
    EXPECT_EQ(Ask(file, 1, request), "1 " + std::string(request.rbegin(), request.rend()));
}

TEST_F(BusRequests, BuffersOfOtherSizesReachTheServiceAsTheyAre) {
    service.onIoctl = [](unsigned int, VEKIoctlArg* arg) { return static_cast<int>(arg->size); };
    const File file = OpenFile();
    for (const size_t size : {size_t{1}, size_t{3903}, size_t{3905}, size_t{65520}}) {
        const std::string request(size, 'x');
        EXPECT_EQ(Ask(file, 0, request), std::to_string(size) + " " + request);
    }
}

TEST_F(BusRequests, ANegativeResultIsTheServicesAndNoError) {
    service.onIoctl = [](unsigned int, VEKIoctlArg*) { return static_cast<int>(0xff0f0000U); };
    EXPECT_EQ(Ask(OpenFile(), 0, "x"), std::to_string(static_cast<int>(0xff0f0000U)) + " x");
}

TEST_F(BusRequests, AServiceThatThrowsHasFailedAndServesOn) {
    service.onIoctl = [](unsigned int cmd, VEKIoctlArg*) -> int {
        return cmd == 0 ? throw std::runtime_error("no") : 1;
    };
    const File file = OpenFile();
    EXPECT_EQ(Ask(file, 0, "x"), std::to_string(-EIO) + " x");
    EXPECT_EQ(Ask(file, 2, "x"), "1 x");
}

TEST_F(BusRequests, TheServicesTimeoutIsToldWhenAFileIsOpened) {
    EXPECT_EQ(ProcmgrSsDefaultTimeoutMs(OpenFile().get()), kServiceTimeoutMs);
}

TEST_F(BusRequests, ReadMovesTheOffsetAsTheServiceSeesFit) {
    service.onRead = [](char* buffer, size_t, long* offset) {
        buffer[0] = 'h';
        buffer[1] = 'i';
        *offset += 2;
        return 2L;
    };
    const File file = OpenFile();
    std::string buffer(10, '.');
    int64_t offset = 40;
    int32_t result = 0;
    ASSERT_EQ(ProcmgrSsRead(file.get(), buffer.data(), buffer.size(), &offset, 0, &result), 0);
    EXPECT_EQ(result, 2);
    EXPECT_EQ(offset, 42);
    EXPECT_EQ(buffer, "hi........");
    EXPECT_TRUE(service.IsTold("read 10 at 40"));
}

TEST_F(BusRequests, AReadThatReturnsMoreThanWasWantedHasFailed) {
    service.onRead = [](char*, size_t size, long*) { return static_cast<long>(size) + 1; };
    const File file = OpenFile();
    std::string buffer(10, '.');
    int64_t offset = 0;
    int32_t result = 0;
    ASSERT_EQ(ProcmgrSsRead(file.get(), buffer.data(), buffer.size(), &offset, 0, &result), 0);
    EXPECT_EQ(result, -EIO);
    EXPECT_EQ(buffer, "..........");
}

TEST_F(BusRequests, ARequestThatTakesLongerIsAnsweredWithATimeoutWhileTheWorkGoesOn) {
    const Gate gate;
    HoldStopAll(gate);
    const RawSocket client = OpenRaw();
    ASSERT_TRUE(client.Send(BusFrame(2, 5, 10, "x")));
    EXPECT_EQ(client.Receive(), ErrorFrame(2, 5, ETIMEDOUT));
    gate.Open();
    ASSERT_TRUE(client.Send(BusFrame(2, 6, 0, "y")));
    EXPECT_EQ(client.Receive(), BusFrame(0x102, 6, 6, "y"));
    EXPECT_THAT(service.Told(), ElementsAre("open grpowner", "ioctl 5", "ioctl 6"));
}

TEST_F(BusRequests, ARequestBehindWorkThatGoesOnWaitsForItWithinItsOwnTime) {
    const Gate gate;
    HoldStopAll(gate);
    const RawSocket client = OpenRaw();
    ASSERT_TRUE(client.Send(BusFrame(2, 5, 1, "x")));
    EXPECT_EQ(client.Receive(), ErrorFrame(2, 5, ETIMEDOUT));
    ASSERT_TRUE(client.Send(BusFrame(2, 9, 1, "y")));
    EXPECT_EQ(client.Receive(), ErrorFrame(2, 9, EBUSY));
    ASSERT_TRUE(client.Send(BusFrame(2, 6, 0, "z")));
    gate.Open();
    EXPECT_EQ(client.Receive(), BusFrame(0x102, 6, 6, "z"));
    EXPECT_THAT(service.Told(), ElementsAre("open grpowner", "ioctl 5", "ioctl 6"));
}

TEST_F(BusRequests, AClientMayRaiseAndLowerTheServicesTimeout) {
    const VEKServiceOps ops = service.Ops();
    ASSERT_EQ(VEKRegisterService("hasty", &ops, 1), 0);
    const Gate gate;
    HoldStopAll(gate);
    const RawSocket opener = Connect("hasty");
    ASSERT_TRUE(opener.Send(BusFrame(1, 1, 0, "")));
    // Opening has the service's time, which is hardly any: both answers are right.
    const auto opened = opener.Receive();
    EXPECT_TRUE(opened == BusFrame(0x101, 1, 0, "") || opened == ErrorFrame(1, 1, ETIMEDOUT));
    ASSERT_TRUE(opener.Send(BusFrame(2, 5, 0, "x")));
    const auto late = opener.Receive();
    EXPECT_TRUE(late == ErrorFrame(2, 5, ETIMEDOUT) || late == ErrorFrame(2, 5, EBUSY));
    ASSERT_TRUE(opener.Send(BusFrame(2, 6, 25000, "y")));
    gate.Open();
    EXPECT_EQ(opener.Receive(), BusFrame(0x102, 6, 6, "y"));
}

TEST_F(BusRequests, AQueryIsAnsweredWhileChangesRun) {
    const Gate gate;
    HoldStopAll(gate);
    std::vector<RawSocket> changers;
    for (int i = 0; i < 6; ++i) {
        changers.push_back(OpenRaw());
        ASSERT_TRUE(changers.back().Send(BusFrame(2, 5, 0, "x")));
    }
    // As many as there are threads would be taken, if changes could take all of them.
    ASSERT_TRUE(service.IsTold("ioctl 5", 2));
    EXPECT_EQ(Ask(OpenFile(), 9, "q"), "9 q");
    gate.Open();
    for (const RawSocket& changer : changers) {
        EXPECT_EQ(changer.Receive(), BusFrame(0x102, 5, 5, "x"));
    }
}

TEST_F(BusRequests, RequestsOfOneFileComeOneAtATime) {
    std::atomic<int> inside{0};
    service.onIoctl = [&inside](unsigned int cmd, VEKIoctlArg*) {
        EXPECT_EQ(inside.fetch_add(1), 0);
        inside.fetch_sub(1);
        return static_cast<int>(cmd);
    };
    const RawSocket client = OpenRaw();
    for (uint32_t cmd = 10; cmd < 30; ++cmd) {
        ASSERT_TRUE(client.Send(BusFrame(2, cmd, 0, "x")));
    }
    for (uint32_t cmd = 10; cmd < 30; ++cmd) {
        EXPECT_EQ(client.Receive(), BusFrame(0x102, cmd, static_cast<int32_t>(cmd), "x"));
    }
}

TEST_F(BusRequests, AFileIsClosedOnlyWhenItsLastRequestHasReturned) {
    const Gate gate;
    HoldStopAll(gate);
    {
        const RawSocket client = OpenRaw();
        ASSERT_TRUE(client.Send(BusFrame(2, 5, 0, "x")));
        ASSERT_TRUE(service.IsTold("ioctl 5"));
    }
    // The reader has seen more than the end of that client when it has served another one.
    EXPECT_EQ(Ask(OpenFile(), 6, "q"), "6 q");
    service.Tell("gate");
    gate.Open();
    ASSERT_TRUE(service.IsTold("close grpowner", 2));
    const std::vector<std::string> told = service.Told();
    const auto gateOpened = std::find(told.begin(), told.end(), "gate");
    EXPECT_LE(std::count(told.begin(), gateOpened, "close grpowner"), 1) << "the close of the other client";
}

TEST_F(BusRequests, AFileThatTheServiceDoesNotOpenIsNotClosedEither) {
    service.onOpen = [](VEKMgrFile*) { return -ENODEV; };
    ProcmgrSsFile* file = nullptr;
    EXPECT_EQ(ProcmgrSsOpen(nullptr, "grpowner", VekTest::kPatience, &file), -ENODEV);
    EXPECT_EQ(file, nullptr);
    service.onOpen = [](VEKMgrFile*) { return 17; };
    EXPECT_EQ(ProcmgrSsOpen(nullptr, "grpowner", VekTest::kPatience, &file), -EIO);
    service.onOpen = nullptr;
    EXPECT_EQ(Ask(OpenFile(), 6, "x"), "6 x");
    EXPECT_TRUE(service.IsTold("close grpowner", 1));
    const std::vector<std::string> told = service.Told();
    EXPECT_EQ(std::count(told.begin(), told.end(), "close grpowner"), 1);
}

TEST_F(BusRequests, RegisteringALiveNameAgainKeepsItsClients) {
    const File file = OpenFile();
    ASSERT_EQ(Register(), 0);
    EXPECT_EQ(Ask(file, 6, "ab"), "6 ba");
    VEKServiceOps other = service.Ops();
    other.ioctl = [](VEKMgrFile*, unsigned int, VEKIoctlArg*) { return 77; };
    ASSERT_EQ(VEKRegisterService("grpowner", &other, 30000), 0);
    EXPECT_EQ(Ask(file, 6, "ab"), "77 ab");
    EXPECT_EQ(ProcmgrSsDefaultTimeoutMs(OpenFile().get()), 30000U);
}

TEST_F(BusRequests, AnEntryPointMayCallTheBus) {
    service.onIoctl = [this](unsigned int, VEKIoctlArg*) { return Register() + Register("another"); };
    EXPECT_EQ(Ask(OpenFile(), 6, "x"), "0 x");
    EXPECT_EQ(Ask(OpenFile("another"), 6, "x"), "0 x");
}

TEST_F(BusRequests, EntryPointsThatAreMissingFailOrDoNothing) {
    const VEKServiceOps none = {};
    ASSERT_EQ(VEKRegisterService("bare", &none, 1000), 0);
    const File file = OpenFile("bare");
    EXPECT_EQ(Ask(file, 6, "x"), std::to_string(-ENOTTY) + " x");
    char byte = 0;
    int64_t offset = 0;
    int32_t result = 0;
    ASSERT_EQ(ProcmgrSsRead(file.get(), &byte, 1, &offset, 0, &result), 0);
    EXPECT_EQ(result, -ENOTTY);
}

TEST_F(BusFixture, NamesAreChecked) {
    const VEKServiceOps ops = service.Ops();
    const VEKQueueOps queueOps = service.QueueOps();
    for (const std::string& name : {std::string(), std::string("a/b"), std::string("a\nb"), std::string(65, 'n')}) {
        EXPECT_EQ(VEKRegisterService(name.c_str(), &ops, 5000), EINVAL) << name;
        EXPECT_EQ(VEKRegisterQueueService(name.c_str(), 5000, &queueOps), EINVAL) << name;
    }
    EXPECT_EQ(VEKRegisterService(nullptr, &ops, 5000), EINVAL);
    EXPECT_EQ(VEKRegisterService("x", nullptr, 5000), EINVAL);
    EXPECT_EQ(VEKRegisterQueueService("x", 5000, nullptr), EINVAL);
    EXPECT_EQ(Register("n"), 0);
}

TEST_F(BusFixture, ANameIsEitherAServicesOrAQueues) {
    ASSERT_EQ(Register("one"), 0);
    EXPECT_EQ(RegisterQueue("one"), EEXIST);
    ASSERT_EQ(RegisterQueue("two"), 0);
    EXPECT_EQ(Register("two"), EEXIST);
    EXPECT_EQ(Ask(OpenFile("one"), 6, "x"), "6 x");
}

TEST_F(BusFixture, ANameOfALiveProcessIsRefusedAndThatOfADeadOneTaken) {
    ASSERT_EQ(Register(), 0);
    folder.Write("vek/taken.lock", "");
    const ProcMgr::UniqueFd lock(::open((folder.Path() + "/vek/taken.lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.Get(), LOCK_EX), 0);
    EXPECT_EQ(Register("taken"), EADDRINUSE);
    EXPECT_TRUE(
        TunorTest::WaitForLog("3 Bus : the service taken cannot be offered: another service of this name is "
                              "running here: it holds the lock " +
                              folder.Path() + "/vek/taken.lock"));
    const RawSocket dead = RawSocket::ListenOn(SocketPath("dead"));
    EXPECT_EQ(Register("dead"), 0);
    EXPECT_EQ(Ask(OpenFile("dead"), 6, "ab"), "6 ba");
}

TEST_F(BusFixture, WhatIsNoSocketIsNotReplaced) {
    ASSERT_EQ(Register(), 0);
    folder.Write("vek/precious.sock", "precious");
    EXPECT_EQ(Register("precious"), EEXIST);
    EXPECT_TRUE(TunorTest::WaitForLog("3 Bus : the service precious cannot be offered: " + SocketPath("precious") +
                                      " is in the way and is not a socket"));
}

}  // namespace
