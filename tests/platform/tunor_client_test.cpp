#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/common_posix/app_beat.h"
#include "platform/posix/tunor/tunor_frame.h"
#include "tests/platform/tunor_client_fixture.h"

using testing::ElementsAre;
using TunorTest::ExpectFailure;
using TunorTest::Frame;
using TunorTest::HelloAnswer;
using TunorTest::kLong;
using TunorTest::Open;
using TunorTest::PipeClient;
using TunorTest::RawSocket;
using TunorTest::WaitForSeen;
using TunorTest::Work;

namespace {

int Send(int fd, std::string bytes) {
    const TunorRequest request = {bytes.data(), static_cast<uint32_t>(bytes.size())};
    return TunorSendRequest(fd, &request);
}

int TimedCall(int fd, uint32_t timeoutMs, std::string& answer) {
    char byte = 'a';
    const TunorRequest request = {&byte, 1};
    TunorResponse response = {nullptr, 0};
    const int result = TunorTimedRPCSync(fd, &request, &response, timeoutMs);
    if (result == 0) {
        answer.assign(static_cast<const char*>(response.data), response.size);
    }
    return result;
}

int EndlessCall(int fd) {
    char byte = 'a';
    const TunorRequest request = {&byte, 1};
    TunorResponse response = {nullptr, 0};
    return TunorRPCSync(fd, &request, &response);
}

long OpenDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
}

void OnBeat(const ProcMgr::AppBeat& beat) noexcept {
    TunorTest::Seen().Change([&] {
        TunorTest::SeenLines().push_back("beat " + beat.name + " " + std::to_string(beat.pid) + " " +
                                         std::to_string(beat.gid));
    });
}

TEST_F(PipeClient, BeatsReachTheHeartbeatLibraryThoughAHandlerIsBusy) {
    ProcMgr::SetAppBeatHandler(OnBeat);
    EXPECT_FALSE(ProcMgr::HasAppBeatCome());
    OpenPipe();
    TunorTest::Gate gate;
    Work() = [gate](int) { EXPECT_TRUE(gate.Wait()); };
    EXPECT_TRUE(peer.Send(Frame(3, 1, "busy")));
    EXPECT_THAT(WaitForSeen(1), ElementsAre("request busy"));
    EXPECT_TRUE(peer.Send(Frame(7, 0, ProcMgr::EncodeAppBeat({"cam", 4711, 10}))));
    EXPECT_TRUE(peer.Send(Frame(7, 0, "malformed")));
    EXPECT_TRUE(peer.Send(Frame(7, 0, ProcMgr::EncodeAppBeat({}))));
    EXPECT_THAT(WaitForSeen(3), ElementsAre("request busy", "beat cam 4711 10", "beat  0 0"));
    EXPECT_TRUE(ProcMgr::HasAppBeatCome());
    gate.Open();
    EXPECT_TRUE(TunorTest::WasLogged("dropped a malformed heartbeat of PROCMGR"));
}

TEST_F(PipeClient, FramesRightBehindTheHelloAnswerAreDelivered) {
    fd = OpenAnsweredBy({HelloAnswer(0), Frame(3, 1, "at once")});
    EXPECT_THAT(WaitForSeen(1), ElementsAre("request at once"));
}

TEST_F(PipeClient, RequestCallAndResponseHaveTheirFrames) {
    OpenPipe();
    EXPECT_EQ(Send(fd, "one-way"), 0);
    EXPECT_EQ(peer.Receive(), Frame(3, 0, "one-way"));
    char text[] = "yes";
    const TunorResponse response = {text, 3};
    ExpectFailure(TunorSendResponse(fd, &response), ENOMSG);
    EXPECT_TRUE(peer.Send(Frame(3, 41, "question")));
    WaitForSeen(1);
    EXPECT_EQ(TunorSendResponse(fd, &response), 0);
    EXPECT_EQ(peer.Receive(), Frame(5, 41, "yes"));
}

TEST_F(PipeClient, AnswerWithAnotherNumberIsNotTheAnswer) {
    OpenPipe();
    std::thread server([this] {
        EXPECT_EQ(peer.Receive(), Frame(4, 1, "a"));
        EXPECT_TRUE(peer.Send(Frame(5, 2, "wrong")));
        EXPECT_TRUE(peer.Send(Frame(5, 0, "wrong")));
        EXPECT_TRUE(peer.Send(Frame(5, 1, "right")));
        EXPECT_TRUE(peer.Send(Frame(5, 1, "late")));
    });
    std::string answer;
    EXPECT_EQ(TimedCall(fd, kLong, answer), 0);
    EXPECT_EQ(answer, "right");
    server.join();
}

TEST_F(PipeClient, AnswerToACallThatGaveUpIsDropped) {
    OpenPipe();
    std::string answer;
    ExpectFailure(TimedCall(fd, 10, answer), ETIMEDOUT);
    EXPECT_TRUE(peer.Receive().has_value());
    EXPECT_TRUE(peer.Send(Frame(5, 1, "late")));
    std::thread server([this] {
        EXPECT_EQ(peer.Receive(), Frame(4, 2, "a"));
        EXPECT_TRUE(peer.Send(Frame(5, 2, "second")));
    });
    EXPECT_EQ(TimedCall(fd, kLong, answer), 0);
    EXPECT_EQ(answer, "second");
    server.join();
}

TEST_F(PipeClient, PeerThatEndsDuringACallWakesIt) {
    OpenPipe();
    std::thread server([this] {
        EXPECT_TRUE(peer.Receive().has_value());
        peer.Close();
    });
    ExpectFailure(EndlessCall(fd), EPIPE);
    server.join();
    EXPECT_THAT(WaitForSeen(1), ElementsAre("lost"));
    EXPECT_THAT(
        TunorTest::LogLines(),
        ElementsAre("3 TunorConnection : lost the pipe to PROCMGR: the peer is gone (fd=" + std::to_string(fd) + ")"));
    ExpectFailure(Send(fd, "a"), EPIPE);
    ExpectFailure(EndlessCall(fd), EPIPE);
}

TEST_F(PipeClient, PeerThatIsKilledDuringACallWakesIt) {
    listener = RawSocket::Listen(folder.Path());
    const pid_t child = ::fork();
    if (child == 0) {
        peer = listener.Accept();
        peer.Receive();
        peer.Send(HelloAnswer(0));
        peer.Receive();
        ::kill(::getpid(), SIGKILL);
        ::_exit(1);
    }
    listener.Close();
    fd = Open(kLong);
    ASSERT_GT(fd, 0);
    ExpectFailure(EndlessCall(fd), EPIPE);
    EXPECT_THAT(WaitForSeen(1), ElementsAre("lost"));
    ::waitpid(child, nullptr, 0);
}

TEST_F(PipeClient, HalfClosedPeerIsLost) {
    OpenPipe();
    EXPECT_TRUE(peer.Send(Frame(3, 1, "last words")));
    ::shutdown(peer.Fd(), SHUT_WR);
    EXPECT_THAT(WaitForSeen(2), ElementsAre("request last words", "lost"));
    ExpectFailure(Send(fd, "a"), EPIPE);
}

TEST_F(PipeClient, MalformedFrameLosesThePipeWithItsReason) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"x", "frame is shorter than its head"},
        {Frame(3, 0, "abc") + "d", "size in the frame's head is not the size of its payload"},
        {std::string(16, '\x01'), "reserved number of the frame is not 0"},
        {std::string(65537, '\0'), "frame is over 64 KiB"},
    };
    for (const auto& [packet, reason] : cases) {
        OpenPipe();
        EXPECT_TRUE(peer.Send(packet));
        EXPECT_TRUE(TunorTest::WaitForLog("lost the pipe to PROCMGR: " + reason));
        EXPECT_EQ(peer.Receive(), "");
        EXPECT_EQ(TunorClosePipe(fd), 0);
    }
}

TEST_F(PipeClient, FramesOfUnknownKindAndMalformedReportsAreDropped) {
    OpenPipe();
    for (const uint32_t kind : {0U, 1U, 2U, 4U, 6U, 8U, 0xffffffffU}) {
        EXPECT_TRUE(peer.Send(Frame(kind, 0, "what")));
    }
    EXPECT_TRUE(peer.Send(Frame(3, 1, "known")));
    EXPECT_THAT(WaitForSeen(1), ElementsAre("request known"));
    const std::string end = " (fd=" + std::to_string(fd) + ")";
    EXPECT_THAT(TunorTest::LogLines(),
                testing::UnorderedElementsAre(
                    "2 TunorConnection : dropped a frame of PROCMGR of the unknown kind 0; further ones silently" + end,
                    "3 TunorConnection : dropped a malformed application report of PROCMGR" + end));
}

TEST_F(PipeClient, FrameWithADescriptorIsDroppedAndTheDescriptorClosed) {
    OpenPipe();
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    EXPECT_TRUE(peer.SendWithDescriptor(Frame(3, 1, "with a gift"), ends[1]));
    EXPECT_TRUE(peer.Send(Frame(3, 2, "without")));
    EXPECT_THAT(WaitForSeen(1), ElementsAre("request without"));
    ::close(ends[1]);
    char byte = 0;
    EXPECT_EQ(::read(ends[0], &byte, 1), 0) << "somebody still holds the other end";
    ::close(ends[0]);
}

TEST_F(PipeClient, MoreThanAHandlerCanEverTakeLosesThePipe) {
    const TunorTest::Gate busy;
    const TunorTest::Gate finish;
    Work() = [busy, finish](int) {
        busy.Open();
        EXPECT_TRUE(finish.Wait());
    };
    OpenPipe();
    EXPECT_TRUE(peer.Send(Frame(3, 1, "work")));
    ASSERT_TRUE(busy.Wait());
    size_t sent = 0;
    while (peer.Send(Frame(3, 2, std::string(65520, 'a')))) {
        ++sent;
        ASSERT_LE(sent, 1000U);
    }
    EXPECT_GE(sent, 256U);
    EXPECT_TRUE(TunorTest::WasLogged("lost the pipe to PROCMGR: over 16 MiB of requests wait for their handler"));
    finish.Open();
    EXPECT_EQ(WaitForSeen(258).back(), "lost");
    EXPECT_EQ(TunorClosePipe(fd), 0);
    fd = 0;
}

TEST_F(PipeClient, PeerThatDoesNotReadCostsBoundedTime) {
    OpenPipe();
    std::string payload(3984, 'a');
    const TunorRequest request = {payload.data(), static_cast<uint32_t>(payload.size())};
    TunorResponse response = {nullptr, 0};
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(TunorTimedRPCSync(fd, &request, &response, 1), -ETIMEDOUT);
    }
    ExpectFailure(TunorSendRequest(fd, &request), ETIMEDOUT);
}

TEST_F(PipeClient, MessagesThatCannotBeSentAreRefused) {
    OpenPipe();
    std::string payload(65521, 'a');
    TunorRequest request = {payload.data(), 65521};
    TunorResponse response = {payload.data(), 65521};
    ExpectFailure(TunorSendRequest(fd, &request), EMSGSIZE);
    ExpectFailure(TunorSendResponse(fd, &response), EMSGSIZE);
    ExpectFailure(TunorTimedRPCSync(fd, &request, &response, kLong), EMSGSIZE);
    request.data = nullptr;
    ExpectFailure(TunorSendRequest(fd, &request), EINVAL);
    ExpectFailure(TunorSendRequest(fd, nullptr), EINVAL);
    ExpectFailure(TunorSendResponse(fd, nullptr), EINVAL);
    ExpectFailure(TunorRPCSync(fd, nullptr, &response), EINVAL);
    ExpectFailure(TunorRPCSync(fd, &request, nullptr), EINVAL);
    request = {payload.data(), 65520};
    EXPECT_EQ(TunorSendRequest(fd, &request), 0);
    EXPECT_EQ(peer.Receive(), Frame(3, 0, std::string(65520, 'a')));
}

TEST_F(PipeClient, HandlerThatThrowsCostsItsRequestOnly) {
    Work() = [](int) { throw std::runtime_error("handler"); };
    OpenPipe();
    EXPECT_TRUE(peer.Send(Frame(3, 1, "1")));
    EXPECT_TRUE(peer.Send(Frame(3, 2, "2")));
    EXPECT_THAT(WaitForSeen(2), ElementsAre("request 1", "request 2"));
    EXPECT_TRUE(TunorTest::WaitForLog("a handler threw; the request of PROCMGR is dropped"));
}

TEST_F(PipeClient, NumberOfADescriptorIsNotUsedAgainWhileItsHandlerRuns) {
    const TunorTest::Gate closed;
    const TunorTest::Gate finish;
    const TunorTest::Gate finished;
    Work() = [closed, finish, finished](int pipe) {
        EXPECT_EQ(TunorClosePipe(pipe), 0);
        closed.Open();
        EXPECT_TRUE(finish.Wait());
        EXPECT_EQ(Send(pipe, "a"), -EBADF);
        finished.Open();
    };
    OpenPipe();
    const int first = fd;
    EXPECT_TRUE(peer.Send(Frame(3, 1, "close")));
    ASSERT_TRUE(closed.Wait());
    peer.Close();
    OpenPipe();
    EXPECT_NE(fd, first);
    finish.Open();
    ASSERT_TRUE(finished.Wait());
}

TEST_F(PipeClient, ClosedPipesLeaveNothingBehind) {
    OpenPipe();
    EXPECT_EQ(TunorClosePipe(fd), 0);
    peer.Close();
    const long before = OpenDescriptors();
    for (int i = 0; i < 20; ++i) {
        OpenPipe();
        EXPECT_EQ(TunorClosePipe(fd), 0);
        peer.Close();
    }
    fd = 0;
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
