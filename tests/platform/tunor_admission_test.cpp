#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/platform/tunor_server_fixture.h"

using ProcMgr::TunorConnectionId;
using ProcMgr::TunorPeer;
using testing::ElementsAre;
using TunorTest::Frame;
using TunorTest::HelloAnswer;
using TunorTest::PipeServer;
using TunorTest::RawSocket;

namespace {

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

TEST_F(PipeServer, TellsTheGroupsThatTheClientHadWhenItConnected) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the right to choose its groups";
    }
    TunorPeer seen;
    hand->admit = [&](const TunorPeer& peer) {
        seen = peer;
        return 0;
    };
    const gid_t groups[] = {54001, 54002};
    ASSERT_EQ(::setgroups(2, groups), 0);
    const RawSocket client = Connect();
    ASSERT_EQ(::setgroups(0, nullptr), 0);
    ASSERT_TRUE(client.Send(Frame(1, 0, "GrpOwner")));
    TurnUntilLogged("owner GrpOwner connected");
    EXPECT_THAT(seen.groups, ElementsAre(54001, 54002));
    const RawSocket other = Open("Other");
    EXPECT_THAT(seen.groups, ElementsAre());
}

TEST_F(PipeServer, HelloAnswerIsTheFirstFrameEvenWhenTheDaemonSpeaksAtOnce) {
    hand->onOpened = [this](TunorConnectionId id) { hand->Server().SendRequest(id, "now", 3); };
    const RawSocket client = Open("GrpOwner");
    EXPECT_EQ(client.Receive(), Frame(3, 1, "now"));
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

TEST_F(PipeServer, OneUserCannotTakeThePlacesOfTheOthers) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the right to become another user";
    }
    Restart({4, 1024, 5000, 1});
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0711), 0);
    hand->allowUser = [](uid_t) { return true; };
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isOther = ::setresgid(54000, 54000, 54000) == 0 && ::setresuid(54000, 54000, 54000) == 0;
        const RawSocket first = isOther ? Connect() : RawSocket();
        const RawSocket second = isOther ? Connect() : RawSocket();
        ::_exit(second.IsOpen() && second.Receive() == HelloAnswer(EAGAIN) ? 0 : 1);
    }
    TurnUntilLogged("of uid 54000: 4 connections are the limit, 1 for one user");
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const RawSocket one = Open("1");
    const RawSocket two = Open("2");
    EXPECT_THAT(hand->told, ElementsAre("opened 1", "opened 2"));
}

}  // namespace
