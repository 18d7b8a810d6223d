#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/tunor_client_fixture.h"

using TunorTest::ExpectFailure;
using TunorTest::Frame;
using TunorTest::HelloAnswer;
using TunorTest::kLong;
using TunorTest::OnRequest;
using TunorTest::Open;
using TunorTest::PipeClient;
using TunorTest::RawSocket;

namespace {

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

}  // namespace
