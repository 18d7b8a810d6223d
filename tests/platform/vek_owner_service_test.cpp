// The group owner's service behind the bus, byte for byte, as a system-state manager sees it.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/app_records.h"
#include "include/ss_to_owner_server.h"
#include "tests/platform/vek_test_kit.h"

using VekTest::BusFixture;
using VekTest::File;
using VekTest::NextEvent;
using VekTest::OpenFile;
using VekTest::OpenQueue;
using VekTest::Queue;

namespace {

/// A buffer of 3904 bytes: a request, and 0xEE where nothing was said.
std::string Request(uint64_t size, uint32_t timeout, const std::string& payload) {
    std::string buffer(PROCMGR_SS_BUFFER_SIZE, '\xee');
    std::memcpy(buffer.data(), &size, sizeof(size));
    std::memcpy(buffer.data() + 8, &timeout, sizeof(timeout));
    buffer.replace(12, payload.size(), payload);
    return buffer;
}

/// What the service leaves in that buffer: length and a zero in front, the payload at 12, all else as it was.
std::string Answer(std::string request, const std::string& payload) {
    const uint32_t head[2] = {static_cast<uint32_t>(payload.size()), 0};
    std::memcpy(request.data(), head, sizeof(head));
    return request.replace(12, payload.size(), payload);
}

int32_t Ask(const File& file, uint32_t cmd, std::string& buffer) {
    int32_t result = 0;
    EXPECT_EQ(ProcmgrSsIoctl(file.get(), cmd, buffer.data(), buffer.size(), VekTest::kPatience, &result), 0);
    return result;
}

class OwnerService : public BusFixture {
protected:
    OwnerService() {
        EXPECT_EQ(owner.RegQueryAppListCallBackImpl(
                      [](std::vector<std::string>& names) {
                          names = {"camera", "lidar"};
                          return true;
                      },
                      "grpowner"),
                  0);
    }
    SsToOwnerServer& owner = SsToOwnerServer::GetInstance();
};

TEST_F(OwnerService, AListComesBackWithEveryOtherByteUntouched) {
    const File file = OpenFile();
    const std::string request = Request(0, 5000, "");
    std::string buffer = request;
    EXPECT_EQ(Ask(file, 6, buffer), 8 + 15);
    EXPECT_EQ(buffer, Answer(request, "1#camera#lidar#"));
}

TEST_F(OwnerService, RegisteringMoreCallbacksKeepsTheClients) {
    const File file = OpenFile();
    int state = 0;
    int timeout = 0;
    ASSERT_EQ(owner.RegSetSystemStateTimeoutCallBackImpl(
                  [&](int newState, int timeoutMs) {
                      state = newState;
                      timeout = timeoutMs;
                      return true;
                  },
                  "grpowner"),
              0);
    const std::string request = Request(4, 1234, "100#");
    std::string buffer = request;
    EXPECT_EQ(Ask(file, 2, buffer), 8 + 2);
    EXPECT_EQ(buffer, Answer(request, "1#"));
    EXPECT_EQ(state, 100);
    EXPECT_EQ(timeout, 1234);
}

TEST_F(OwnerService, ABufferOf3903Or3905BytesIsRefusedAndUntouched) {
    const File file = OpenFile();
    for (const size_t size : {size_t{3903}, size_t{3905}}) {
        std::string buffer(size, '\xee');
        EXPECT_EQ(Ask(file, 6, buffer), static_cast<int32_t>(0xff0f0000U)) << size;
        EXPECT_EQ(buffer, std::string(size, '\xee')) << size;
    }
}

TEST_F(OwnerService, Commands1And7And10ReturnAnEmptyResponse) {
    const File file = OpenFile();
    for (const uint32_t cmd : {1U, 7U, 10U}) {
        const std::string request = Request(7, 5000, "ignored");
        std::string buffer = request;
        EXPECT_EQ(Ask(file, cmd, buffer), 8) << cmd;
        EXPECT_EQ(buffer, Answer(request, "")) << cmd;
    }
}

TEST_F(OwnerService, ARequestWithoutACallbackIsAnsweredWithFailure) {
    const File file = OpenFile();
    const std::string request = Request(0, 5000, "");
    std::string buffer = request;
    EXPECT_EQ(Ask(file, 5, buffer), 8 + 1);
    EXPECT_EQ(buffer, Answer(request, "0"));
}

TEST_F(OwnerService, SystemEventsReachTheirReadersAsDecimalDigits) {
    ASSERT_EQ(owner.InitSysEventServer("events"), 0);
    EXPECT_EQ(owner.ReportSysEvent({1}), 0) << "nobody is there";
    {
        const TunorTest::RawSocket unread = TunorTest::RawSocket::ConnectTo(SocketPath("events"));
        ASSERT_TRUE(unread.Send(VekTest::BusFrame(1, 1, 0, "")));
        EXPECT_EQ(unread.Receive(), VekTest::BusFrame(0x101, 5000, 0, ""));
        EXPECT_EQ(owner.ReportSysEvent({2}), 0xF10001) << "open, but not read";
    }
    const Queue queue = OpenQueue();
    static_cast<void>(owner.ReportSysEvent({200}));
    static_cast<void>(owner.ReportSysEvent({4294967295U}));
    EXPECT_EQ(NextEvent(queue), "200");
    EXPECT_EQ(NextEvent(queue), "4294967295");
}

TEST_F(OwnerService, AReaderThatReadsNothingCostsItsOwnEventsOnly) {
    ASSERT_EQ(owner.InitSysEventServer("events"), 0);
    const Queue lazy = OpenQueue();
    const Queue keen = OpenQueue();
    for (uint32_t i = 0; i < 64; ++i) {
        EXPECT_EQ(owner.ReportSysEvent({i}), 0);
        EXPECT_EQ(NextEvent(keen), std::to_string(i));
    }
    // What the keen reader handed back is free when the service has taken note of it.
    do {
        EXPECT_EQ(owner.ReportSysEvent({999}), 0xF10209);
    } while (NextEvent(keen, 0) != "999");
    for (uint32_t i = 0; i < 64; ++i) {
        EXPECT_EQ(NextEvent(lazy), std::to_string(i));
    }
    EXPECT_EQ(NextEvent(lazy, 0), "ETIMEDOUT");
}

}  // namespace
