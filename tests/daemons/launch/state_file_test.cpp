#include "daemons/procmgrd/launch/state_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/daemons/launch/launch_fixture.h"

namespace {

using ProcMgr::EndLeftovers;
using ProcMgr::FindLeftovers;
using ProcMgr::Leftover;
using ProcMgr::ProcessId;
using ProcMgr::StateFile;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kRunDir = LaunchTest::RunDir();

class State : public LaunchTest::LaunchFixture {
protected:
    State() : path_(folder_.File("state")) {}

    StateFile OpenEmpty() const {
        StateFile file;
        int error = 0;
        EXPECT_TRUE(file.Open(path_, error)) << error;
        EXPECT_TRUE(file.Clear(error)) << error;
        return file;
    }

    static void Add(StateFile& file, const std::string& name, const ProcessId& process) {
        int error = 0;
        EXPECT_TRUE(file.Add({name, "vekmgr", process}, error)) << error;
    }

    std::vector<std::string> LeftoverNames() const {
        std::vector<std::string> names;
        for (const Leftover& leftover : FindLeftovers(path_, kRunDir)) {
            names.push_back(leftover.record.appName);
        }
        return names;
    }

    /// An application that says that it is ready.
    ProcessId StartReady(const char* command) {
        const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({command}));
        EXPECT_TRUE(result.Ok());
        EXPECT_EQ(output_.Line(), "ready");
        return result.process;
    }

    LaunchTest::TemporaryFolder folder_;
    const std::string path_;
};

TEST_F(State, NamesTheApplicationsThatStillRun) {
    const ProcessId process = StartReady("wait");
    StateFile file = OpenEmpty();
    Add(file, "cam @front%", process);
    const std::vector<Leftover> leftovers = FindLeftovers(path_, kRunDir);
    ASSERT_EQ(leftovers.size(), 1U);
    EXPECT_EQ(leftovers[0].record.appName, "cam @front%");
    EXPECT_EQ(leftovers[0].record.owner, "vekmgr");
    EXPECT_EQ(leftovers[0].record.process, process);
    EXPECT_THAT(leftovers[0].processes, ElementsAre(process));
}

TEST_F(State, DoesNotNameApplicationsWhoseEndWasWrittenDown) {
    const ProcessId process = StartReady("wait");
    StateFile file = OpenEmpty();
    Add(file, "cam", process);
    file.Remove(process);
    EXPECT_THAT(LeftoverNames(), IsEmpty());
    EXPECT_THAT(file.Records(), IsEmpty());
}

TEST_F(State, DoesNotTakeAProcessWithTheSameNumberForTheApplication) {
    const ProcessId process = StartReady("wait");
    StateFile file = OpenEmpty();
    Add(file, "cam", {process.pid, process.startTime - 1});
    EXPECT_THAT(LeftoverNames(), IsEmpty());
}

TEST_F(State, PassesOverATornLastRecord) {
    const ProcessId process = StartReady("wait");
    {
        StateFile file = OpenEmpty();
        Add(file, "cam", process);
        Add(file, "lidar", process);
    }
    const std::string whole = folder_.Read("state");
    const size_t secondRecord = whole.find("\n+", whole.find("\n+") + 1) + 1;
    for (size_t size = secondRecord; size < whole.size(); ++size) {
        folder_.Write("state", whole.substr(0, size));
        EXPECT_THAT(LeftoverNames(), ElementsAre("cam")) << size;
    }
}

TEST_F(State, PassesOverADamagedRecordInTheMiddle) {
    const ProcessId process = StartReady("wait");
    {
        StateFile file = OpenEmpty();
        Add(file, "cam", process);
    }
    std::string content = folder_.Read("state");
    content.insert(content.find('+'), "+ 17 1 name=x owner=y 00000000\n\n+\n\xFF\n");
    folder_.Write("state", content);
    EXPECT_THAT(LeftoverNames(), ElementsAre("cam"));
}

TEST_F(State, HasNoLeftoversWithoutAFileOrFromAnEarlierBoot) {
    EXPECT_THAT(LeftoverNames(), IsEmpty());
    const ProcessId process = StartReady("wait");
    {
        StateFile file = OpenEmpty();
        Add(file, "cam", process);
    }
    std::string content = folder_.Read("state");
    folder_.Write("state", "procmgr-state 1 00000000-0000-0000-0000-000000000000" + content.substr(content.find('\n')));
    EXPECT_THAT(LeftoverNames(), IsEmpty());
}

TEST_F(State, StaysShortWhateverStartsAndEnds) {
    StateFile file = OpenEmpty();
    Add(file, "base", {4000001, 1});
    for (int i = 0; i < 10000; ++i) {
        const ProcessId process{4000002 + i, 5};
        Add(file, "cam", process);
        file.Remove(process);
    }
    EXPECT_LT(LaunchTest::Lines(folder_.Read("state")).size(), 100U);
    EXPECT_EQ(file.Records().size(), 1U);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
}

TEST_F(State, KeepsTheOldContentUntilItIsCleared) {
    const ProcessId process = StartReady("wait");
    {
        StateFile file = OpenEmpty();
        Add(file, "cam", process);
    }
    StateFile next;
    int error = 0;
    ASSERT_TRUE(next.Open(path_, error));
    EXPECT_THAT(LeftoverNames(), ElementsAre("cam"));
    EXPECT_FALSE(next.Add({"lidar", "vekmgr", process}, error));
    EXPECT_EQ(error, EBADF);
    ASSERT_TRUE(next.Clear(error));
    EXPECT_THAT(LeftoverNames(), IsEmpty());
}

TEST_F(State, BelongsToOneDaemonAtATime) {
    StateFile file = OpenEmpty();
    const pid_t other = ::fork();
    if (other == 0) {
        StateFile second;
        int error = 0;
        ::_exit(!second.Open(path_, error) && error == EWOULDBLOCK ? 0 : 1);
    }
    int status = 0;
    ::waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(State, SaysWhyItCannotBeOpened) {
    StateFile file;
    int error = 0;
    EXPECT_FALSE(file.Open(folder_.File("nowhere/state"), error));
    EXPECT_EQ(error, ENOENT);
}

TEST_F(State, IsNotTakenFromAStranger) {
    const ProcessId process = StartReady("wait");
    {
        StateFile file = OpenEmpty();
        Add(file, "cam", process);
    }
    ASSERT_THAT(LeftoverNames(), ElementsAre("cam"));
    const auto expectRefused = [this](const char* what) {
        StateFile file;
        int error = 0;
        EXPECT_FALSE(file.Open(path_, error)) << what;
        EXPECT_EQ(error, EPERM) << what;
        EXPECT_THAT(LeftoverNames(), IsEmpty()) << what;
    };
    ASSERT_EQ(::chmod(path_.c_str(), 0606), 0);
    expectRefused("writable by others");
    ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(path_.c_str(), 65534, 65534), 0);
        expectRefused("of another user");
        ASSERT_EQ(::chown(path_.c_str(), 0, 0), 0);
    }
    std::filesystem::rename(path_, folder_.File("elsewhere"));
    std::filesystem::create_symlink(folder_.File("elsewhere"), path_);
    expectRefused("a link");
    std::filesystem::remove(path_);
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    expectRefused("a pipe");
}

TEST_F(State, IsNotWrittenThroughWhatLiesInTheWayOfItsDraft) {
    folder_.Write("precious", "precious");
    std::filesystem::create_symlink(folder_.File("precious"), path_ + ".new");
    const StateFile file = OpenEmpty();
    EXPECT_EQ(folder_.Read("precious"), "precious");
    EXPECT_FALSE(std::filesystem::is_symlink(path_));
}

TEST_F(State, EndsLeftoversWithTheirWholeTrees) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"tree"}));
    ASSERT_TRUE(result.Ok());
    const std::vector<ProcessId> processes = ReadProcesses(4);
    StateFile file = OpenEmpty();
    Add(file, "cam", result.process);
    const auto leftovers = FindLeftovers(path_, kRunDir);
    ASSERT_EQ(leftovers.size(), 1U);
    EXPECT_THAT(leftovers[0].processes, testing::UnorderedElementsAreArray(processes));
    EXPECT_THAT(EndLeftovers(leftovers, kRunDir), IsEmpty());
    for (const ProcessId& process : processes) {
        EXPECT_FALSE(ProcMgr::IsAlive(process));
    }
    EXPECT_THAT(LeftoverNames(), IsEmpty());
}

TEST_F(State, EndsWhatALeaderThatIsGoneLeftBehind) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"leave-child"}));
    ASSERT_TRUE(result.Ok());
    const std::vector<ProcessId> left = ReadProcesses(1);
    EXPECT_EQ(Reap(result.process), 0);
    StateFile file = OpenEmpty();
    Add(file, "cam", result.process);
    EXPECT_THAT(EndLeftovers(FindLeftovers(path_, kRunDir), kRunDir), IsEmpty());
    EXPECT_FALSE(ProcMgr::IsAlive(left[0]));
}

TEST_F(State, KillsALeftoverThatDoesNotEndWhenAsked) {
    const ProcessId process = StartReady("wait-stubbornly");
    StateFile file = OpenEmpty();
    Add(file, "cam", process);
    const ProcMgr::EndLeftoversLimits limits{milliseconds(1), milliseconds(60000)};
    EXPECT_THAT(EndLeftovers(FindLeftovers(path_, kRunDir), kRunDir, limits), IsEmpty());
    EXPECT_EQ(Reap(process), -SIGKILL);
}

TEST_F(State, AsksALeftoverFirst) {
    const ProcessId process = StartReady("wait");
    StateFile file = OpenEmpty();
    Add(file, "cam", process);
    const ProcMgr::EndLeftoversLimits limits{milliseconds(60000), milliseconds(60000)};
    EXPECT_THAT(EndLeftovers(FindLeftovers(path_, kRunDir), kRunDir, limits), IsEmpty());
    EXPECT_EQ(Reap(process), -SIGTERM);
}

}  // namespace
