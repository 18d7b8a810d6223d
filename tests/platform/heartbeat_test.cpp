#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "platform/posix/heartbeat/heartbeat_settings.h"
#include "platform/posix/heartbeat/heartbeat_wire.h"
#include "tests/platform/heartbeat_test_kit.h"

namespace ProcMgr::Posix {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

HeartBeatSettings Settings(const std::map<std::string, std::string>& variables) {
    return ReadHeartBeatSettings([&variables](const char* name) -> const char* {
        const auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    });
}

// Sends a datagram of any content to a watcher.
bool SendRaw(const std::string& path, const std::string& text) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    const bool isSent = MakeAddress(path, address) &&
                        sendto(fd, text.data(), text.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&address),
                               sizeof(address)) == static_cast<ssize_t>(text.size());
    close(fd);
    return isSent;
}

std::vector<std::string> Names(const std::vector<ReceivedBeat>& beats) {
    std::vector<std::string> names;
    names.reserve(beats.size());
    for (const ReceivedBeat& beat : beats) {
        names.push_back(beat.name);
    }
    return names;
}

TEST(HeartBeatSettings, AreOneSecondAndThreeMissesByDefault) {
    const HeartBeatSettings settings = Settings({});
    EXPECT_EQ(settings.period.count(), 1000);
    EXPECT_EQ(settings.misses, 3U);
    EXPECT_EQ(settings.runDirectory, "/run/procmgr");
    EXPECT_THAT(settings.warnings, IsEmpty());
}

TEST(HeartBeatSettings, AreReadFromTheEnvironment) {
    const HeartBeatSettings settings = Settings(
        {{"PROCMGR_HEARTBEAT_PERIOD_MS", "250"}, {"PROCMGR_HEARTBEAT_MISSES", "5"}, {"PROCMGR_RUN_DIR", "/tmp/x"}});
    EXPECT_EQ(settings.period.count(), 250);
    EXPECT_EQ(settings.misses, 5U);
    EXPECT_EQ(settings.runDirectory, "/tmp/x");
}

TEST(HeartBeatSettings, TakeTheDefaultForABadValueAndSaySo) {
    const HeartBeatSettings settings =
        Settings({{"PROCMGR_HEARTBEAT_PERIOD_MS", "0"}, {"PROCMGR_HEARTBEAT_MISSES", "many"}});
    EXPECT_EQ(settings.period.count(), 1000);
    EXPECT_EQ(settings.misses, 3U);
    EXPECT_THAT(settings.warnings,
                ElementsAre("PROCMGR_HEARTBEAT_PERIOD_MS is '0'; use a number from 1 to 3600000. Taking 1000.",
                            "PROCMGR_HEARTBEAT_MISSES is 'many'; use a number from 1 to 1000. Taking 3."));
}

TEST(BeatText, IsTheWordBeatAndTheName) {
    EXPECT_EQ(BeatText("cam@front"), "procmgr 1 beat cam@front");
    EXPECT_EQ(ReadBeat("procmgr 1 beat cam@front"), "cam@front");
    EXPECT_EQ(ReadBeat("procmgr 1 beat two words"), "two words");
    EXPECT_EQ(ReadBeat("procmgr 1 beat " + std::string(256, 'n')), std::string(256, 'n'));
}

TEST(BeatText, IsNothingElse) {
    for (const std::string& text :
         {std::string(), std::string("procmgr 1 beat "), std::string("procmgr 1 on"), std::string("procmgr 2 beat cam"),
          std::string("cam"), "procmgr 1 beat " + std::string(257, 'n')}) {
        EXPECT_EQ(ReadBeat(text), "") << text;
    }
}

TEST(HeartBeatPath, StaysInTheFolderWhateverTheName) {
    EXPECT_EQ(HeartBeatPath("/run/procmgr", "PROCMGR"), "/run/procmgr/heartbeat/PROCMGR.sock");
    EXPECT_EQ(HeartBeatPath("/r", "cam@front.v1-2_x"), "/r/heartbeat/cam@front.v1-2_x.sock");
    EXPECT_EQ(HeartBeatPath("/r", "../../etc/x"), "/r/heartbeat/%2E.%2F..%2Fetc%2Fx.sock");
    EXPECT_EQ(HeartBeatPath("/r", std::string_view("a\0b%\xff", 5)), "/r/heartbeat/a%00b%25%FF.sock");
}

TEST(HeartBeatReceiver, GivesNameAndTheKernelsCredentialsOfTheSender) {
    const HeartFolder folder;
    const auto receiver = folder.Receiver("PROCMGR");
    EXPECT_THAT(receiver->Receive(), IsEmpty());
    ASSERT_TRUE(SendRaw(HeartBeatPath(folder.Path(), "PROCMGR"), "procmgr 1 beat cam"));
    const std::vector<ReceivedBeat> beats = receiver->Receive();
    ASSERT_THAT(beats, SizeIs(1));
    EXPECT_EQ(beats[0].name, "cam");
    EXPECT_EQ(beats[0].pid, getpid());
    EXPECT_EQ(beats[0].uid, getuid());
    EXPECT_EQ(beats[0].gid, getgid());
}

TEST(HeartBeatReceiver, DropsWhatIsNoBeat) {
    const HeartFolder folder;
    const auto receiver = folder.Receiver("PROCMGR");
    const std::string path = HeartBeatPath(folder.Path(), "PROCMGR");
    for (const std::string& text : {std::string(), std::string("procmgr 1 on"), std::string(5000, 'x'),
                                    "procmgr 1 beat " + std::string(257, 'n'), std::string("procmgr 1 beat cam")}) {
        ASSERT_TRUE(SendRaw(path, text));
    }
    EXPECT_THAT(Names(receiver->Receive()), ElementsAre("cam"));
}

TEST(HeartBeatReceiver, LetsEverybodySendAndKeepsTheFolderSticky) {
    const HeartFolder folder;
    const auto receiver = folder.Receiver("PROCMGR");
    struct stat status {};
    ASSERT_EQ(stat(HeartBeatPath(folder.Path(), "PROCMGR").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0666U);
    ASSERT_EQ(stat(HeartBeatDirectory(folder.Path()).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 01777U);
}

TEST(HeartBeatReceiver, IsTheOnlyOneOfItsName) {
    const HeartFolder folder;
    auto first = folder.Receiver("PROCMGR");
    std::unique_ptr<HeartBeatReceiver> second;
    EXPECT_EQ(HeartBeatReceiver::Open(folder.Path(), "PROCMGR", second), EADDRINUSE);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(HeartBeatReceiver::Open(folder.Path(), "OTHER", second), 0);
    first.reset();
    EXPECT_EQ(HeartBeatReceiver::Open(folder.Path(), "PROCMGR", second), 0);
}

TEST(HeartBeatReceiver, RemovesItsFileWhenItGoes) {
    const HeartFolder folder;
    folder.Receiver("PROCMGR").reset();
    EXPECT_FALSE(std::filesystem::exists(HeartBeatPath(folder.Path(), "PROCMGR")));
}

TEST(HeartBeatReceiver, ReplacesWhatADeadWatcherLeft) {
    const HeartFolder folder;
    folder.Receiver("OTHER").reset();
    const std::string path = HeartBeatPath(folder.Path(), "PROCMGR");
    sockaddr_un address{};
    ASSERT_TRUE(MakeAddress(path, address));
    const int dead = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    close(dead);

    const auto receiver = folder.Receiver("PROCMGR");
    ASSERT_NE(receiver, nullptr);
    EXPECT_TRUE(SendRaw(path, "procmgr 1 beat cam"));
}

TEST(HeartBeatReceiver, DoesNotRemoveAFileThatIsNoSocket) {
    const HeartFolder folder;
    folder.Receiver("OTHER").reset();
    const std::string path = HeartBeatPath(folder.Path(), "PROCMGR");
    std::ofstream(path) << "text";
    std::unique_ptr<HeartBeatReceiver> receiver;
    const int error = HeartBeatReceiver::Open(folder.Path(), "PROCMGR", receiver);
    EXPECT_EQ(error, EADDRINUSE);
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(HeartBeatReceiver, FailsWithoutARunDirectoryAndForAPathThatIsTooLong) {
    const HeartFolder folder;
    std::unique_ptr<HeartBeatReceiver> receiver;
    EXPECT_EQ(HeartBeatReceiver::Open(folder.Path() + "/not/there", "PROCMGR", receiver), ENOENT);
    EXPECT_EQ(HeartBeatReceiver::Open(folder.Path(), std::string(108, 'n'), receiver), ENAMETOOLONG);
}

TEST(SendHeartBeat, BeatsPeriodicallyUnderTheGivenName) {
    const HeartFolder folder;
    const auto receiver = folder.Receiver("PROCMGR");
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(RegisterSendHeartBeat("ownerXX", 5, "PROCMGRXX", 7, &handle), 0);
    EXPECT_NE(handle, nullptr);
    const std::vector<ReceivedBeat> beats = WaitForBeats(*receiver, 3);
    ASSERT_GE(beats.size(), 3U);
    EXPECT_THAT(Names(beats), testing::Each("owner"));
    EXPECT_EQ(beats[0].pid, getpid());
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(SendHeartBeat, DropsBeatsWhileThePeerIsAbsentAndResumesWhenItIsBack) {
    const HeartFolder folder;
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(StartSending("owner", "PROCMGR", handle), 0);
    for (int round = 0; round < 3; ++round) {
        const auto receiver = folder.Receiver("PROCMGR");
        EXPECT_THAT(WaitForBeats(*receiver, 2), testing::Not(IsEmpty())) << "round " << round;
    }
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(SendHeartBeat, SendsNothingMoreAfterItWasStopped) {
    const HeartFolder folder("1");
    const auto receiver = folder.Receiver("PROCMGR");
    HeartBeatHandle stopped = nullptr;
    HeartBeatHandle running = nullptr;
    ASSERT_EQ(StartSending("stopped", "PROCMGR", stopped), 0);
    ASSERT_EQ(StartSending("running", "PROCMGR", running), 0);
    EXPECT_THAT(Names(WaitForBeats(*receiver, 4)), testing::Contains("stopped"));
    ASSERT_EQ(UnregisterSendHeartBeat(stopped), 0);
    (void)receiver->Receive();
    // Twenty periods of the other one.
    EXPECT_THAT(Names(WaitForBeats(*receiver, 20)), testing::Each("running"));
    EXPECT_EQ(UnregisterSendHeartBeat(running), 0);
}

TEST(SendHeartBeat, KeepsGoingWhileNobodyEmptiesThePeersQueue) {
    const HeartFolder folder("1");
    const auto full = folder.Receiver("FULL");
    const auto read = folder.Receiver("READ");
    HeartBeatHandle toFull = nullptr;
    HeartBeatHandle toRead = nullptr;
    ASSERT_EQ(StartSending("owner", "FULL", toFull), 0);
    ASSERT_EQ(StartSending("owner", "READ", toRead), 0);
    EXPECT_THAT(WaitForBeats(*read, 200), SizeIs(testing::Ge(200U)));
    EXPECT_THAT(full->Receive(), testing::Not(IsEmpty()));
    EXPECT_THAT(WaitForBeats(*full, 1), testing::Not(IsEmpty()));
    EXPECT_EQ(UnregisterSendHeartBeat(toFull), 0);
    EXPECT_EQ(UnregisterSendHeartBeat(toRead), 0);
}

TEST(SendHeartBeat, RefusesNamesOfZeroAndOfMoreThan256BytesAndNulls) {
    const HeartFolder folder;
    HeartBeatHandle handle = nullptr;
    EXPECT_NE(RegisterSendHeartBeat("", 0, "PROCMGR", 7, &handle), 0);
    EXPECT_NE(RegisterSendHeartBeat(nullptr, 5, "PROCMGR", 7, &handle), 0);
    EXPECT_NE(RegisterSendHeartBeat("owner", 5, "", 0, &handle), 0);
    EXPECT_NE(RegisterSendHeartBeat("owner", 5, nullptr, 7, &handle), 0);
    EXPECT_NE(RegisterSendHeartBeat("owner", 5, "PROCMGR", 7, nullptr), 0);
    EXPECT_NE(StartSending(std::string(257, 'n'), "PROCMGR", handle), 0);
    EXPECT_NE(StartSending("owner", std::string(256, 'p'), handle), 0);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(StartSending(std::string(256, 'n'), "PROCMGR", handle), 0);
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(SendHeartBeat, RefusesToStopAHandleThatIsNotInUse) {
    const HeartFolder folder;
    EXPECT_NE(UnregisterSendHeartBeat(nullptr), 0);
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(StartSending("owner", "PROCMGR", handle), 0);
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
    EXPECT_NE(UnregisterSendHeartBeat(handle), 0);
}

TEST(CheckHeartBeat, TellsLossAndRecoveryOnceEach) {
    const HeartFolder folder;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));

    // One beat and no more.
    ASSERT_TRUE(SendRaw(HeartBeatPath(folder.Path(), "watcher"), "procmgr 1 beat cam"));
    const std::string pid = std::to_string(getpid());
    EXPECT_THAT(Notices::Get().WaitFor(3),
                ElementsAre("cam 0 lost", "cam " + pid + " recovered", "cam " + pid + " lost"));
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
}

TEST(CheckHeartBeat, HearsTheSendingHalf) {
    const HeartFolder folder;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(StartSending("cam", "watcher", handle), 0);
    EXPECT_THAT(Notices::Get().WaitFor(2), testing::Contains("cam " + std::to_string(getpid()) + " recovered"));
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(CheckHeartBeat, TakesNoBeatOfAnotherGroup) {
    const HeartFolder folder;
    // Root's watch is strict; others can't have processes in groups other than their own.
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    HeartBeatHandle handle = nullptr;
    ASSERT_EQ(StartSending("cam", "watcher", handle), 0);
    ASSERT_EQ(StartWatching("cam", getgid() + 1), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
    EXPECT_EQ(UnregisterSendHeartBeat(handle), 0);
}

TEST(CheckHeartBeat, AcceptsAWatchOfANameThatIsWatched) {
    const HeartFolder folder;
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_EQ(UnregisterCheckHeartBeat("cam", 3), 0);
    EXPECT_NE(UnregisterCheckHeartBeat("cam", 3), 0);
}

TEST(CheckHeartBeat, TellsNothingOfANameThatIsNotWatchedAnyMore) {
    const HeartFolder folder("200");
    ASSERT_EQ(StartWatching("gone", getgid()), 0);
    ASSERT_EQ(UnregisterCheckHeartBeat("gone", 4), 0);
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
}

TEST(CheckHeartBeat, GivesItsAddressUpWhenAllIsDisabledAndTakesItAgainLater) {
    const HeartFolder folder;
    const std::string path = HeartBeatPath(folder.Path(), "watcher");
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(StartWatching("cam", getgid()), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), testing::Contains("cam 0 lost"));
}

TEST(CheckHeartBeat, FailsWhenItsAddressIsTaken) {
    const HeartFolder folder;
    const auto other = folder.Receiver("watcher");
    EXPECT_EQ(StartWatching("cam", getgid()), EADDRINUSE);
    EXPECT_NE(UnregisterCheckHeartBeat("cam", 3), 0);
}

TEST(CheckHeartBeat, RefusesBadNamesAndNoCallBack) {
    const HeartFolder folder;
    EXPECT_NE(StartWatching("", getgid()), 0);
    EXPECT_NE(StartWatching(std::string(257, 'n'), getgid()), 0);
    EXPECT_NE(RegisterCheckHeartBeat(nullptr, 3, getgid(), Notices::Take), 0);
    EXPECT_NE(RegisterCheckHeartBeat("cam", 3, getgid(), nullptr), 0);
    EXPECT_NE(UnregisterCheckHeartBeat(nullptr, 3), 0);
}

// A callback that throws the first time.
int ThrowOnce(const char* name, size_t nameLen, unsigned int pid, int status) {
    const size_t told = Notices::Get().WaitFor(0).size();
    (void)Notices::Take(name, nameLen, pid, status);
    if (told == 0) {
        throw std::runtime_error("callback");
    }
    return 1;
}

TEST(CheckHeartBeat, GoesOnAfterACallBackThatThrew) {
    const HeartFolder folder;
    ASSERT_EQ(RegisterCheckHeartBeat("cam", 3, getgid(), ThrowOnce), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
    ASSERT_EQ(RegisterCheckHeartBeat("lidar", 5, getgid(), ThrowOnce), 0);
    EXPECT_THAT(Notices::Get().WaitFor(2), ElementsAre("cam 0 lost", "lidar 0 lost"));
}

// A callback that stops the watch that it is told of.
int StopFromInside(const char* name, size_t nameLen, unsigned int pid, int status) {
    (void)UnregisterCheckHeartBeat(name, nameLen);
    (void)DisableAllCheckHeartBeat();
    return Notices::Take(name, nameLen, pid, status);
}

TEST(CheckHeartBeat, MayBeStoppedFromItsOwnCallBack) {
    const HeartFolder folder;
    ASSERT_EQ(RegisterCheckHeartBeat("cam", 3, getgid(), StopFromInside), 0);
    EXPECT_THAT(Notices::Get().WaitFor(1), ElementsAre("cam 0 lost"));
    EXPECT_NE(UnregisterCheckHeartBeat("cam", 3), 0);
}

}  // namespace
}  // namespace ProcMgr::Posix
