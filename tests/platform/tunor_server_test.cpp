#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "tests/platform/tunor_server_fixture.h"

using ProcMgr::TunorConnectionId;
using testing::ElementsAre;
using TunorTest::Frame;
using TunorTest::PipeServer;
using TunorTest::RawSocket;

namespace {

TEST_F(PipeServer, RequestsCallsAndResponsesComeInTheirOrder) {
    const RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(client.Send(Frame(3, 0, "one-way")));
    EXPECT_TRUE(client.Send(Frame(4, 9, "call")));
    EXPECT_TRUE(client.Send(Frame(5, 3, "response")));
    EXPECT_TRUE(client.Send(Frame(3, 0, "")));
    ASSERT_TRUE(hand->TurnUntil(5));
    EXPECT_THAT(hand->told,
                ElementsAre("opened GrpOwner", "request one-way", "call call", "response 3 response", "request "));
}

TEST_F(PipeServer, CallIsAnsweredLaterUnderItsNumber) {
    const RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(client.Send(Frame(4, 1, "first")));
    EXPECT_TRUE(client.Send(Frame(4, 2, "second")));
    ASSERT_TRUE(hand->TurnUntil(3));
    EXPECT_TRUE(hand->Server().Answer(hand->ids[0], 2, "2#", 2));
    EXPECT_TRUE(hand->Server().Answer(hand->ids[0], 1, "1#", 2));
    EXPECT_EQ(client.Receive(), Frame(5, 2, "2#"));
    EXPECT_EQ(client.Receive(), Frame(5, 1, "1#"));
}

TEST_F(PipeServer, AppReportHasItsOwnFrame) {
    const RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(hand->Server().SendAppReport(hand->ids[0], "cam", 4711, 0));
    EXPECT_EQ(client.Receive(), Frame(6, 0, std::string("\x67\x12\0\0\0\0\0\0\x03\0\0\0cam", 15)));
}

TEST_F(PipeServer, AppBeatHasItsOwnFrame) {
    const RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(hand->Server().SendAppBeat(hand->ids[0], "cam", 4711, 10));
    EXPECT_TRUE(hand->Server().SendAppBeat(hand->ids[0], "", 0, 0));
    EXPECT_EQ(client.Receive(), Frame(7, 0, std::string("\x67\x12\0\0\x0a\0\0\0\x03\0\0\0cam", 15)));
    EXPECT_EQ(client.Receive(), Frame(7, 0, std::string(12, '\0')));
}

TEST_F(PipeServer, AppBeatsAreDroppedWhileTheClientDoesNotRead) {
    const RawSocket client = Open("GrpOwner");
    int sent = 0;
    while (hand->Server().QueuedBytes(hand->ids[0]) == 0) {
        hand->Server().SendRequest(hand->ids[0], "x", 1);
        ++sent;
    }
    const size_t queued = hand->Server().QueuedBytes(hand->ids[0]);
    EXPECT_FALSE(hand->Server().SendAppBeat(hand->ids[0], "cam", 4711, 10));
    EXPECT_EQ(hand->Server().QueuedBytes(hand->ids[0]), queued);
    for (int i = 0; i < sent; ++i) {
        ASSERT_TRUE(client.Receive().has_value());
        hand->Turn(0);
    }
    EXPECT_TRUE(hand->Server().SendAppBeat(hand->ids[0], "cam", 4711, 10));
}

TEST_F(PipeServer, RequestOverTheLimitIsRefused) {
    const RawSocket client = Open("GrpOwner");
    const std::string tooLong(65521, 'a');
    EXPECT_EQ(hand->Server().SendRequest(hand->ids[0], tooLong.data(), tooLong.size()), 0U);
    EXPECT_EQ(hand->Server().SendRequest(hand->ids[0], tooLong.data(), 65520), 2U);
}

TEST_F(PipeServer, GoneClientIsToldBehindItsLastRequest) {
    RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(client.Send(Frame(3, 0, "last words")));
    client.Close();
    ASSERT_TRUE(hand->TurnUntil(3));
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner", "request last words", "closed GrpOwner: it is gone"));
    EXPECT_EQ(hand->Server().SendRequest(hand->ids[0], "a", 1), 0U);
}

TEST_F(PipeServer, HalfClosedClientIsGone) {
    const RawSocket client = Open("GrpOwner");
    ::shutdown(client.Fd(), SHUT_WR);
    ASSERT_TRUE(hand->TurnUntil(2));
    EXPECT_EQ(hand->told[1], "closed GrpOwner: it is gone");
}

TEST_F(PipeServer, MalformedFrameEndsTheConnectionWithItsReason) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"x", "frame is shorter than its head"},
        {Frame(3, 0, "abc") + "d", "size in the frame's head is not the size of its payload"},
        {std::string(16, '\x01'), "reserved number of the frame is not 0"},
        {std::string(65537, '\0'), "frame is over 64 KiB"},
        {std::string(100000, '\0'), "frame is over 64 KiB"},
        {Frame(1, 0, "GrpOwner"), "it said hello twice"},
    };
    for (const auto& [packet, reason] : cases) {
        hand->told.clear();
        const RawSocket client = Open("GrpOwner");
        EXPECT_TRUE(client.Send(packet));
        EXPECT_TRUE(hand->TurnUntil(2));
        EXPECT_EQ(hand->told.back(), "closed GrpOwner: " + reason);
    }
}

TEST_F(PipeServer, RandomPacketsNeverHurtTheServer) {
    std::mt19937 random(4711);
    const RawSocket bystander = Open("Bystander");
    for (int round = 0; round < 500; ++round) {
        const RawSocket client = Open("GrpOwner");
        for (int i = 0; i < 4; ++i) {
            // Mostly heads that are nearly right, so that they get past the first tests.
            std::string packet = Frame(static_cast<uint32_t>(random() % 9), static_cast<uint32_t>(random()),
                                       std::string(random() % 40, 'a'));
            packet[random() % packet.size()] = static_cast<char>(random());
            client.Send(packet);
        }
        TurnUntilQuiet();
        hand->Server().Close(hand->Server().FindByName("GrpOwner"));
    }
    EXPECT_TRUE(bystander.Send(Frame(3, 0, "unharmed")));
    TurnUntilQuiet();
    EXPECT_EQ(hand->told.back(), "request unharmed");
}

TEST_F(PipeServer, FramesOfUnknownKindAreDroppedAndLoggedOnce) {
    const RawSocket client = Open("GrpOwner");
    for (const uint32_t kind : {0U, 2U, 6U, 7U, 0xffffffffU}) {
        EXPECT_TRUE(client.Send(Frame(kind, 0, "what")));
    }
    EXPECT_TRUE(client.Send(Frame(3, 0, "known")));
    ASSERT_TRUE(hand->TurnUntil(2));
    EXPECT_EQ(hand->told[1], "request known");
    EXPECT_EQ(TunorTest::LogLines().back(),
              "2 TunorServer : dropped a frame of GrpOwner of the unknown kind 0; further ones silently");
}

TEST_F(PipeServer, FrameWithADescriptorIsDroppedAndTheDescriptorClosed) {
    const RawSocket client = Open("GrpOwner");
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    EXPECT_TRUE(client.SendWithDescriptor(Frame(3, 0, "with a gift"), ends[1]));
    EXPECT_TRUE(client.Send(Frame(3, 0, "without")));
    ASSERT_TRUE(hand->TurnUntil(2));
    EXPECT_EQ(hand->told[1], "request without");
    ::close(ends[1]);
    char byte = 0;
    EXPECT_EQ(::read(ends[0], &byte, 1), 0) << "somebody still holds the other end";
    ::close(ends[0]);
}

TEST_F(PipeServer, ClientThatDoesNotReadNeverBlocksAndIsClosedAtTheLimit) {
    Restart({8, size_t{1} << 20, 5000});
    const RawSocket stalled = Open("Stalled");
    const RawSocket lively = Open("Lively");
    const std::string request(3984, 'a');
    int sent = 0;
    while (hand->Server().SendRequest(hand->ids[0], request.data(), request.size()) != 0) {
        ++sent;
        ASSERT_LE(hand->Server().QueuedBytes(hand->ids[0]), size_t{1} << 20);
        ASSERT_LT(sent, 100000);
    }
    EXPECT_GE(sent, (1 << 20) / 4000);
    EXPECT_EQ(hand->Server().SendRequest(hand->ids[0], "a", 1), 0U);
    ASSERT_TRUE(hand->TurnUntil(3));
    EXPECT_EQ(hand->told[2], "closed Stalled: it does not read: the frames that wait for it passed the limit");
    EXPECT_NE(hand->Server().SendRequest(hand->ids[1], "still served", 12), 0U);
    EXPECT_EQ(lively.Receive(), Frame(3, 1, "still served"));
}

TEST_F(PipeServer, QueuedFramesArriveInOrderWhenTheClientReads) {
    const RawSocket client = Open("GrpOwner");
    constexpr uint32_t kCount = 2000;
    const std::string request(3984, 'a');
    for (uint32_t i = 1; i <= kCount; ++i) {
        ASSERT_EQ(hand->Server().SendRequest(hand->ids[0], request.data(), request.size()), i);
    }
    EXPECT_GT(hand->Server().QueuedBytes(hand->ids[0]), 0U);
    for (uint32_t i = 1; i <= kCount; ++i) {
        TurnUntilQuiet();
        ASSERT_EQ(client.Receive(), Frame(3, i, request)) << i;
    }
    EXPECT_EQ(hand->Server().QueuedBytes(hand->ids[0]), 0U);
    EXPECT_FALSE(hand->Turn(0));
}

TEST_F(PipeServer, CloseEndsTheConnectionWithoutACallback) {
    const RawSocket client = Open("GrpOwner");
    EXPECT_NE(hand->Server().SendRequest(hand->ids[0], "bye", 3), 0U);
    EXPECT_TRUE(hand->Server().Close(hand->ids[0]));
    EXPECT_FALSE(hand->Server().Close(hand->ids[0]));
    TurnUntilQuiet();
    EXPECT_EQ(client.Receive(), Frame(3, 1, "bye"));
    EXPECT_EQ(client.Receive(), "");
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner"));
    const RawSocket again = Open("GrpOwner");
}

TEST_F(PipeServer, CallbackMayCloseItsOwnConnection) {
    hand->onCall = [this](TunorConnectionId id, uint32_t, const std::string&) { hand->Server().Close(id); };
    const RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(client.Send(Frame(4, 1, "close me")));
    EXPECT_TRUE(client.Send(Frame(4, 2, "never seen")));
    ASSERT_TRUE(hand->TurnUntil(2));
    TurnUntilQuiet();
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner", "call close me"));
}

TEST_F(PipeServer, OpenedCallbackMayCloseItsConnection) {
    hand->onOpened = [this](TunorConnectionId id) { hand->Server().Close(id); };
    const RawSocket client = Open("GrpOwner");
    EXPECT_EQ(client.Receive(), "");
}

TEST_F(PipeServer, NumbersOfConnectionsAreNotUsedTwice) {
    for (int i = 0; i < 3; ++i) {
        RawSocket client = Open("GrpOwner");
        client.Close();
        ASSERT_TRUE(hand->TurnUntil(static_cast<size_t>(2 * i + 2)));
    }
    EXPECT_NE(hand->ids[0], hand->ids[1]);
    EXPECT_NE(hand->ids[1], hand->ids[2]);
    EXPECT_NE(hand->ids[0], 0U);
}

TEST_F(PipeServer, OperationsOnUnknownConnectionsFail) {
    EXPECT_EQ(hand->Server().SendRequest(0, "a", 1), 0U);
    EXPECT_EQ(hand->Server().SendRequest(77, "a", 1), 0U);
    EXPECT_FALSE(hand->Server().Answer(77, 1, "a", 1));
    EXPECT_FALSE(hand->Server().SendAppReport(77, "cam", 1, 0));
    EXPECT_FALSE(hand->Server().SendAppBeat(77, "cam", 1, 0));
    EXPECT_FALSE(hand->Server().Close(77));
    EXPECT_EQ(hand->Server().FindPeer(77), nullptr);
    EXPECT_EQ(hand->Server().FindByName("nobody"), 0U);
}

TEST_F(PipeServer, HundredConnectionsEachGetTheirOwn) {
    std::vector<RawSocket> clients;
    clients.reserve(100);
    for (int i = 0; i < 100; ++i) {
        clients.push_back(Open("owner" + std::to_string(i)));
    }
    for (size_t i = 0; i < clients.size(); ++i) {
        const std::string text = "for " + std::to_string(i);
        EXPECT_EQ(hand->Server().SendRequest(hand->ids[i], text.data(), text.size()), 1U);
    }
    for (size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i].Receive(), Frame(3, 1, "for " + std::to_string(i)));
    }
    clients.clear();
    ASSERT_TRUE(hand->TurnUntil(200));
}

}  // namespace
