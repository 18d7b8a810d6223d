#include "platform/posix/tunor/tunor_server.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "tests/platform/tunor_test_kit.h"

using ProcMgr::TunorConnectionId;
using ProcMgr::TunorPeer;
using ProcMgr::TunorServerLimits;
using testing::ElementsAre;
using TunorTest::Frame;
using TunorTest::RawSocket;
using TunorTest::ServerOnHand;

namespace {

std::string HelloAnswer(int error) {
    return Frame(2, 0, std::string(reinterpret_cast<const char*>(&error), sizeof(error)));
}

class PipeServer : public testing::Test {
protected:
    PipeServer() { Restart({}); }

    void Restart(TunorServerLimits limits) {
        hand = std::make_unique<ServerOnHand>(limits);
        std::string error;
        EXPECT_TRUE(hand->Server().Listen(folder.Path(), "PROCMGR", error)) << error;
    }

    RawSocket Connect() const { return RawSocket::Connect(folder.Path()); }

    RawSocket Hello(const std::string& name) {
        RawSocket socket = Connect();
        EXPECT_TRUE(socket.Send(Frame(1, 0, name)));
        return socket;
    }

    /// An open connection, its hello answered.
    RawSocket Open(const std::string& name) {
        const size_t count = hand->ids.size();
        RawSocket socket = Hello(name);
        while (hand->ids.size() == count && hand->Turn()) {
        }
        EXPECT_EQ(socket.Receive(), HelloAnswer(0));
        return socket;
    }

    void TurnUntilLogged(const std::string& part) {
        while (!TunorTest::WasLogged(part)) {
            ASSERT_TRUE(hand->Turn()) << part;
        }
    }

    /// Nothing is left to do for the server.
    void TurnUntilQuiet() {
        while (hand->Turn(0)) {
        }
    }

    TunorTest::TempFolder folder;
    std::unique_ptr<ServerOnHand> hand;
};

TEST_F(PipeServer, TellsOfAnOpenConnectionWithNameAndCredentials) {
    TunorPeer seen;
    hand->admit = [&](const TunorPeer& peer) {
        seen = peer;
        return 0;
    };
    const RawSocket client = Open("GrpOwner");
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner"));
    EXPECT_EQ(seen.name, "GrpOwner");
    EXPECT_EQ(seen.pid, ::getpid());
    EXPECT_EQ(seen.uid, ::geteuid());
    EXPECT_EQ(seen.gid, ::getegid());
    EXPECT_EQ(hand->Server().FindByName("GrpOwner"), hand->ids[0]);
    EXPECT_EQ(hand->Server().FindPeer(hand->ids[0])->name, "GrpOwner");
}

TEST_F(PipeServer, HelloAnswerIsTheFirstFrameEvenWhenTheDaemonSpeaksAtOnce) {
    hand->onOpened = [this](TunorConnectionId id) { hand->Server().SendRequest(id, "now", 3); };
    const RawSocket client = Open("GrpOwner");
    EXPECT_EQ(client.Receive(), Frame(3, 1, "now"));
}

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

TEST_F(PipeServer, RequestOverTheLimitIsRefused) {
    const RawSocket client = Open("GrpOwner");
    const std::string tooLong(65521, 'a');
    EXPECT_EQ(hand->Server().SendRequest(hand->ids[0], tooLong.data(), tooLong.size()), 0U);
    EXPECT_EQ(hand->Server().SendRequest(hand->ids[0], tooLong.data(), 65520), 2U);
}

TEST_F(PipeServer, UserThatMayNotConnectGetsEaccesAndTakesNoPlace) {
    Restart({1, 1024, 5000});
    hand->allowUser = [](uid_t) { return false; };
    const RawSocket refused = Hello("GrpOwner");
    ASSERT_TRUE(hand->Turn());
    EXPECT_EQ(refused.Receive(), HelloAnswer(EACCES));
    EXPECT_EQ(refused.Receive(), "");
    hand->allowUser = nullptr;
    const RawSocket client = Open("GrpOwner");
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner"));
}

TEST_F(PipeServer, RefusedUserIsLoggedOnce) {
    hand->allowUser = [](uid_t) { return false; };
    for (int i = 0; i < 3; ++i) {
        const RawSocket refused = Connect();
        ASSERT_TRUE(hand->Turn());
        EXPECT_EQ(refused.Receive(), HelloAnswer(EACCES));
    }
    EXPECT_THAT(TunorTest::LogLines(),
                ElementsAre("2 TunorServer : refused process " + std::to_string(::getpid()) + ": uid " +
                            std::to_string(::geteuid()) + " may not connect; further ones silently"));
}

TEST_F(PipeServer, AnotherUserIsRefusedByItsKernelCredentials) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the right to become another user";
    }
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0711), 0);
    hand->allowUser = [](uid_t uid) { return uid == 0; };
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isOther = ::setresgid(54000, 54000, 54000) == 0 && ::setresuid(54000, 54000, 54000) == 0;
        const RawSocket socket = isOther ? Connect() : RawSocket();
        ::_exit(socket.IsOpen() && socket.Receive() == HelloAnswer(EACCES) ? 0 : 1);
    }
    ASSERT_TRUE(hand->Turn());
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(TunorTest::WasLogged("uid 54000 may not connect"));
}

TEST_F(PipeServer, OwnerThatTheDaemonDoesNotAdmitGetsItsErrno) {
    hand->admit = [](const TunorPeer&) { return EPERM; };
    const RawSocket client = Hello("GrpOwner");
    TurnUntilLogged("refused owner GrpOwner");
    EXPECT_EQ(client.Receive(), HelloAnswer(EPERM));
    EXPECT_EQ(client.Receive(), "");
    EXPECT_TRUE(hand->told.empty());
}

TEST_F(PipeServer, SecondLiveOwnerOfANameIsRefused) {
    const RawSocket first = Open("GrpOwner");
    const RawSocket second = Hello("GrpOwner");
    TurnUntilLogged("refused owner GrpOwner");
    EXPECT_EQ(second.Receive(), HelloAnswer(EADDRINUSE));
    const RawSocket other = Open("Other");
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner", "opened Other"));
}

TEST_F(PipeServer, OwnerThatCameBackBeforeItsEndWasSeenIsAdmitted) {
    RawSocket first = Open("GrpOwner");
    const RawSocket second = Connect();
    TurnUntilQuiet();
    // The hello of the second stands before the end of the first, which still has something to say.
    EXPECT_TRUE(second.Send(Frame(1, 0, "GrpOwner")));
    EXPECT_TRUE(first.Send(Frame(3, 0, "last words")));
    first.Close();
    ASSERT_TRUE(hand->TurnUntil(4));
    EXPECT_THAT(hand->told,
                ElementsAre("opened GrpOwner", "request last words", "closed GrpOwner: it is gone", "opened GrpOwner"));
    EXPECT_EQ(second.Receive(), HelloAnswer(0));
    EXPECT_EQ(hand->Server().FindByName("GrpOwner"), hand->ids[1]);
    EXPECT_EQ(hand->Server().FindPeer(hand->ids[0]), nullptr);
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

TEST_F(PipeServer, FirstFrameThatIsNoHelloEndsTheConnection) {
    for (const std::string& packet :
         {Frame(3, 0, "GrpOwner"), Frame(99, 0, "GrpOwner"), Frame(1, 0, ""), Frame(1, 0, std::string(129, 'a')),
          Frame(1, 0, "a/b"), std::string("x"), std::string(65537, 'x')}) {
        const RawSocket client = Connect();
        EXPECT_TRUE(client.Send(packet));
        EXPECT_TRUE(hand->Turn());
        TurnUntilQuiet();
        EXPECT_EQ(client.Receive(), "");
    }
    EXPECT_TRUE(hand->told.empty());
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

TEST_F(PipeServer, ClientThatSaysNothingIsClosedWhenTheTimeIsOver) {
    Restart({8, 1024, 30});
    const RawSocket first = Connect();
    const RawSocket second = Connect();
    while (!TunorTest::WaitReadable(first.Fd(), 0) || !TunorTest::WaitReadable(second.Fd(), 0)) {
        ASSERT_TRUE(hand->Turn());
    }
    EXPECT_EQ(first.Receive(), "");
    EXPECT_EQ(second.Receive(), "");
    EXPECT_TRUE(TunorTest::WasLogged("before its hello: it said no hello in time"));
    EXPECT_FALSE(hand->Turn(0)) << "the timer must be quiet again";
}

TEST_F(PipeServer, HelloInTimeIsNotClosedLater) {
    Restart({8, 1024, 30});
    const RawSocket open = Open("GrpOwner");
    const RawSocket silent = Connect();
    while (!TunorTest::WaitReadable(silent.Fd(), 0)) {
        ASSERT_TRUE(hand->Turn());
    }
    EXPECT_THAT(hand->told, ElementsAre("opened GrpOwner"));
}

TEST_F(PipeServer, ConnectionOverTheLimitIsAnsweredEagain) {
    Restart({2, 1024, 5000});
    RawSocket first = Open("1");
    const RawSocket silent = Connect();
    ASSERT_TRUE(hand->Turn());
    const RawSocket third = Connect();
    ASSERT_TRUE(hand->Turn());
    EXPECT_EQ(third.Receive(), HelloAnswer(EAGAIN));
    first.Close();
    ASSERT_TRUE(hand->TurnUntil(2));
    const RawSocket fourth = Open("4");
    EXPECT_THAT(hand->told, ElementsAre("opened 1", "closed 1: it is gone", "opened 4"));
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
    EXPECT_FALSE(hand->Server().Close(77));
    EXPECT_EQ(hand->Server().FindPeer(77), nullptr);
    EXPECT_EQ(hand->Server().FindByName("nobody"), 0U);
}

TEST_F(PipeServer, SecondDaemonOnTheSameRunDirectoryIsRefused) {
    ServerOnHand second;
    std::string error;
    EXPECT_FALSE(second.Server().Listen(folder.Path(), "PROCMGR", error));
    EXPECT_EQ(error, "another process manager is running here: it holds the lock " + folder.Path() + "/PROCMGR.lock");
    const RawSocket client = Open("GrpOwner");
    EXPECT_TRUE(second.Server().Listen(folder.Path(), "OTHER", error)) << error;
}

TEST_F(PipeServer, SocketOfADeadDaemonIsReplaced) {
    hand.reset();
    {
        const RawSocket dead = RawSocket::Listen(folder.Path());
        ASSERT_TRUE(dead.IsOpen());
    }
    Restart({});
    const RawSocket client = Open("GrpOwner");
}

TEST_F(PipeServer, FileInTheWayThatIsNoSocketIsKept) {
    hand.reset();
    const std::string path = folder.Write("PROCMGR.sock", "precious");
    ServerOnHand server;
    std::string error;
    EXPECT_FALSE(server.Server().Listen(folder.Path(), "PROCMGR", error));
    EXPECT_EQ(error, path + " is in the way and is not a socket");
    EXPECT_EQ(::access(path.c_str(), F_OK), 0);
}

TEST_F(PipeServer, EndOfTheServerRemovesTheSocketAndGivesTheLockBack) {
    hand.reset();
    EXPECT_NE(::access((folder.Path() + "/PROCMGR.sock").c_str(), F_OK), 0);
    Restart({});
}

TEST_F(PipeServer, RunDirectoryIsMadeWithTheSocketOpenToAllAndTheLockToNobody) {
    const std::string runDir = folder.Path() + "/run";
    ServerOnHand server;
    std::string error;
    ASSERT_TRUE(server.Server().Listen(runDir, "PROCMGR", error)) << error;
    struct stat status = {};
    ASSERT_EQ(::stat((runDir + "/PROCMGR.sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0666U);
    ASSERT_EQ(::stat((runDir + "/PROCMGR.lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(PipeServer, RunDirectoryThatCannotServeIsRefused) {
    ServerOnHand server;
    std::string error;
    EXPECT_FALSE(server.Server().Listen(folder.Path() + "/no/such", "PROCMGR", error));
    EXPECT_EQ(error, "the run directory " + folder.Path() + "/no/such cannot be made: No such file or directory");
    const std::string file = folder.Write("file", "");
    EXPECT_FALSE(server.Server().Listen(file, "PROCMGR", error));
    EXPECT_EQ(error, "the run directory " + file + " is not a folder");
    const std::string open = folder.Path() + "/open";
    ASSERT_EQ(::mkdir(open.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
    EXPECT_FALSE(server.Server().Listen(open, "PROCMGR", error));
    EXPECT_EQ(error, "the run directory " + open + " belongs to another user or is writable by others");
    EXPECT_FALSE(server.Server().Listen(folder.Path(), "a/b", error));
    const std::string deep = folder.Path() + "/" + std::string(100, 'd');
    EXPECT_FALSE(server.Server().Listen(deep, "PROCMGR", error));
    EXPECT_EQ(error, "the path " + deep + "/PROCMGR.sock is too long for a socket");
}

TEST_F(PipeServer, WithoutAFreeDescriptorTheServerStaysQuietAndRecovers) {
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const RawSocket starved = Connect();
    rlimit none = before;
    none.rlim_cur = static_cast<rlim_t>(starved.Fd());
    std::vector<ProcMgr::UniqueFd> fill;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    for (ProcMgr::UniqueFd fd(::dup(0)); fd; fd = ProcMgr::UniqueFd(::dup(0))) {
        fill.push_back(std::move(fd));
    }
    EXPECT_TRUE(hand->Turn());
    EXPECT_TRUE(TunorTest::WasLogged("no descriptor is left for a further connection"));
    EXPECT_FALSE(hand->Turn(0)) << "the daemon's loop would spin";
    EXPECT_EQ(starved.Receive(), "");
    fill.clear();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    const RawSocket client = Open("GrpOwner");
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
