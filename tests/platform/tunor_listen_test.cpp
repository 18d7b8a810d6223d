#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/platform/tunor_server_fixture.h"

using TunorTest::PipeServer;
using TunorTest::RawSocket;
using TunorTest::ServerOnHand;

namespace {

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
    ASSERT_EQ(::chmod(open.c_str(), 01777), 0);
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

}  // namespace
