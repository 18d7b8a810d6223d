#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"
#include "tests/platform/tunor_test_kit.h"

using testing::ElementsAre;
using TunorTest::Frame;
using TunorTest::RawSocket;

namespace {

constexpr uint32_t kLong = 30000;

TunorTest::Watched& Seen() {
    static TunorTest::Watched& watched = *new TunorTest::Watched;
    return watched;
}

std::vector<std::string>& SeenLines() {
    static std::vector<std::string>& lines = *new std::vector<std::string>;
    return lines;
}

std::function<void(int)>& Work() {
    static std::function<void(int)>& work = *new std::function<void(int)>;
    return work;
}

void OnRequest(int fd, TunorRequest* request) {
    const std::string bytes(static_cast<const char*>(request->data), request->size);
    Seen().Change([&] { SeenLines().push_back("request " + bytes); });
    if (Work()) {
        Work()(fd);
    }
}

void OnLost(int) {
    Seen().Change([] { SeenLines().push_back("lost"); });
}

std::vector<std::string> WaitForSeen(size_t count) {
    EXPECT_TRUE(Seen().WaitFor([&] { return SeenLines().size() >= count; }));
    std::vector<std::string> lines;
    Seen().Change([&] { lines = SeenLines(); });
    return lines;
}

int Open(uint32_t timeoutMs) {
    const TunorOpenParam param = {"PROCMGR", static_cast<uint32_t>(::getgid()), timeoutMs, OnRequest};
    return TunorOpen(&param);
}

std::string HelloAnswer(int error) {
    return Frame(2, 0, std::string(reinterpret_cast<const char*>(&error), sizeof(error)));
}

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

/// A process manager that says what the test says, byte by byte.
class PipeClient : public testing::Test {
protected:
    PipeClient() {
        ::setenv("PROCMGR_RUN_DIR", folder.Path().c_str(), 1);
        ::setenv("PROC_NAME", "GrpOwner", 1);
        ::unsetenv("PROCMGR_SERVER_UID");
        OwnerSetPipeLostHandler(OnLost);
    }

    ~PipeClient() override {
        if (fd > 0) {
            TunorClosePipe(fd);
        }
    }

    /// Opens the pipe while the other side answers the hello with these packets and, when told so, hangs up.
    int OpenAnsweredBy(const std::vector<std::string>& packets, bool hangUp = false, uint32_t timeoutMs = kLong) {
        if (!listener.IsOpen()) {
            listener = RawSocket::Listen(folder.Path());
        }
        std::thread server([&] {
            peer = listener.Accept();
            hello = peer.Receive().value_or("nothing");
            for (const std::string& packet : packets) {
                EXPECT_TRUE(peer.Send(packet));
            }
            if (hangUp) {
                peer.Close();
                listener.Close();
            }
        });
        const int result = Open(timeoutMs);
        const int error = errno;
        server.join();
        errno = error;
        return result;
    }

    void OpenPipe() {
        fd = OpenAnsweredBy({HelloAnswer(0)});
        ASSERT_GT(fd, 0);
    }

    TunorTest::TempFolder folder;
    RawSocket listener;
    RawSocket peer;
    std::string hello;
    int fd = 0;
};

void ExpectFailure(int result, int error) {
    const int seen = errno;
    EXPECT_EQ(result, -error);
    EXPECT_EQ(seen, error);
}

TEST_F(PipeClient, HelloCarriesTheNameOfTheProcess) {
    OpenPipe();
    EXPECT_EQ(hello, Frame(1, 0, "GrpOwner"));
}

TEST_F(PipeClient, HelloCarriesTheProgramsNameWithoutPROC_NAME) {
    ::unsetenv("PROC_NAME");
    OpenPipe();
    EXPECT_EQ(hello, Frame(1, 0, "platform_tunor_test"));
}

TEST_F(PipeClient, OpenWaitsForAPeerThatComesLater) {
    const TunorTest::Gate started;
    int result = 0;
    std::thread opener([&] {
        started.Open();
        result = Open(kLong);
    });
    ASSERT_TRUE(started.Wait());
    listener = RawSocket::Listen(folder.Path());
    peer = listener.Accept();
    EXPECT_EQ(peer.Receive(), Frame(1, 0, "GrpOwner"));
    EXPECT_TRUE(peer.Send(HelloAnswer(0)));
    opener.join();
    fd = result;
    EXPECT_GT(fd, 0);
}

TEST_F(PipeClient, OpenGivesUpWhenThePeerDoesNotComeInTime) {
    ExpectFailure(Open(20), ETIMEDOUT);
}

TEST_F(PipeClient, OpenGivesUpOnTheSocketOfADeadPeer) {
    RawSocket::Listen(folder.Path()).Close();
    ExpectFailure(Open(20), ETIMEDOUT);
}

TEST_F(PipeClient, OpenGivesUpOnAPeerThatDoesNotAnswerTheHello) {
    ExpectFailure(OpenAnsweredBy({}, false, 20), ETIMEDOUT);
}

TEST_F(PipeClient, OpenTriesAgainWhenThePeerHangsUpBeforeItsAnswer) {
    ExpectFailure(OpenAnsweredBy({}, true, 50), ETIMEDOUT);
}

TEST_F(PipeClient, OpenFailsWithTheErrnoOfTheRefusal) {
    ExpectFailure(OpenAnsweredBy({HelloAnswer(EACCES)}), EACCES);
    peer.Close();
    ExpectFailure(OpenAnsweredBy({HelloAnswer(EADDRINUSE)}, true), EADDRINUSE);
}

TEST_F(PipeClient, OpenReadsARefusalThatCameWithoutItsHelloBeingRead) {
    TunorTest::ServerThread server;
    server.Do([](TunorTest::ServerOnHand& hand) { hand.allowUser = [](uid_t) { return false; }; });
    for (int i = 0; i < 20; ++i) {
        ExpectFailure(Open(kLong), EACCES);
    }
}

TEST_F(PipeClient, OpenGivesMinusElevenWhenThePeerIsFull) {
    EXPECT_EQ(OpenAnsweredBy({HelloAnswer(EAGAIN)}), -11);
}

TEST_F(PipeClient, OpenGivesMinusElevenWhenThePeerDoesNotAcceptInTime) {
    listener = RawSocket::Listen(folder.Path());
    ASSERT_EQ(::listen(listener.Fd(), 1), 0);
    std::vector<ProcMgr::UniqueFd> waiting;
    sockaddr_un address = {};
    socklen_t length = sizeof(address);
    ASSERT_EQ(::getsockname(listener.Fd(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    int result = 0;
    while (result == 0) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        result = ::connect(waiting.back().Get(), reinterpret_cast<const sockaddr*>(&address), length);
    }
    ASSERT_EQ(errno, EAGAIN);
    EXPECT_EQ(Open(0), -11);
    EXPECT_EQ(Open(20), -11);
}

TEST_F(PipeClient, OpenRefusesAMalformedAnswerToItsHello) {
    for (const std::string& packet : {Frame(3, 0, "early"), Frame(2, 0, "abc"), Frame(2, 0, "\xff\xff\xff\xff"),
                                      std::string("x"), std::string(65537, 'x')}) {
        ExpectFailure(OpenAnsweredBy({packet}), EPROTO);
        peer.Close();
    }
}

TEST_F(PipeClient, OpenRefusesBadParameters) {
    ExpectFailure(TunorOpen(nullptr), EINVAL);
    for (const char* name : {static_cast<const char*>(nullptr), "", "a/b", "a\nb"}) {
        const TunorOpenParam param = {name, 0, kLong, OnRequest};
        ExpectFailure(TunorOpen(&param), EINVAL);
    }
    ::setenv("PROC_NAME", "bad/name", 1);
    ExpectFailure(Open(kLong), EINVAL);
    ::setenv("PROC_NAME", "GrpOwner", 1);
    ::setenv("PROCMGR_RUN_DIR", std::string(100, 'd').c_str(), 1);
    ExpectFailure(Open(kLong), ENAMETOOLONG);
}

TEST_F(PipeClient, SecondProcessOfTheSameNameIsRefusedByTheServer) {
    TunorTest::ServerThread server;
    fd = Open(kLong);
    EXPECT_GT(fd, 0);
    ExpectFailure(Open(kLong), EADDRINUSE);
}

/// Listens as another user, answers one hello and stays until it is hung up; the read end of its pipe tells when.
class ForeignServer {
public:
    explicit ForeignServer(const std::string& runDir) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        child_ = ::fork();
        if (child_ == 0) {
            Serve(runDir, ends[1]);
        }
        ::close(ends[1]);
        char byte = 0;
        EXPECT_EQ(::read(ends[0], &byte, 1), 1);
        ::close(ends[0]);
    }
    ~ForeignServer() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }

private:
    [[noreturn]] static void Serve(const std::string& runDir, int ready) {
        if (::setresgid(54000, 54000, 54000) != 0 || ::setresuid(54000, 54000, 54000) != 0) {
            ::_exit(1);
        }
        const RawSocket listener = RawSocket::Listen(runDir);
        if (!listener.IsOpen() || ::write(ready, "r", 1) != 1) {
            ::_exit(1);
        }
        for (;;) {
            const RawSocket peer = listener.Accept();
            if (!peer.Receive().value_or("").empty()) {
                peer.Send(HelloAnswer(0));
                peer.Receive();
            }
        }
    }

    pid_t child_ = -1;
};

TEST_F(PipeClient, ServerOfAnotherUserIsTrustedOnlyWhenTheEnvironmentNamesIt) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the right to become another user";
    }
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0777), 0);
    const ForeignServer server(folder.Path());
    ExpectFailure(Open(kLong), EACCES);
    EXPECT_TRUE(TunorTest::WasLogged("the peer runs as uid 54000, which is not trusted"));
    for (const char* uid : {"", "54001", "54000x", "-1"}) {
        ::setenv("PROCMGR_SERVER_UID", uid, 1);
        ExpectFailure(Open(kLong), EACCES);
    }
    ::setenv("PROCMGR_SERVER_UID", "54000", 1);
    fd = Open(kLong);
    EXPECT_GT(fd, 0);
}

TEST_F(PipeClient, DescriptorIsAboveTheStandardStreamsEvenWhenTheyAreClosed) {
    const ProcMgr::UniqueFd saved(::fcntl(0, F_DUPFD_CLOEXEC, 10));
    OpenAnsweredBy({HelloAnswer(EACCES)});
    peer.Close();
    ::close(0);
    fd = OpenAnsweredBy({HelloAnswer(0)});
    EXPECT_GT(fd, 2);
    ::dup2(saved.Get(), 0);
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
    for (const uint32_t kind : {0U, 1U, 2U, 4U, 6U, 7U, 0xffffffffU}) {
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
