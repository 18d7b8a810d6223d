#include "daemons/procmgrd/launch/process_tree.h"

#include <gmock/gmock.h>

#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "tests/daemons/launch/launch_fixture.h"

namespace {

using ProcMgr::BelongsTo;
using ProcMgr::FindTrees;
using ProcMgr::ProcessId;
using ProcMgr::ReadProcessTable;
using ProcMgr::SignalTree;
using ProcMgr::TreeRoot;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kRunDir = LaunchTest::RunDir();

/// A folder that looks like /proc. The numbers are beyond those of real processes, so that no test can meet itself.
class InventedTree : public testing::Test {
protected:
    struct Row {
        ProcessId id;
        pid_t parent;
        pid_t group;
        pid_t session;
        char state = 'S';
        std::string environment = {};
    };

    void Add(const Row& row) const {
        const std::string fields = " (odd ) name) " + std::string(1, row.state) + " " + std::to_string(row.parent) +
                                   " " + std::to_string(row.group) + " " + std::to_string(row.session) +
                                   " 0 -1 4194304 1 2 3 4 5 6 7 8 20 0 1 0 " + std::to_string(row.id.startTime) +
                                   " 100 200\n";
        const std::string number = std::to_string(row.id.pid);
        folder_.Write(number + "/stat", number + fields);
        folder_.Write(number + "/environ", row.environment);
    }

    std::vector<ProcessId> Tree(const ProcessId& leader) const {
        return FindTrees(ReadProcessTable(folder_.Path()), {{leader, "cam", "vekmgr", kRunDir}}, folder_.Path())[0];
    }

    static std::string Mark(const std::string& app, const std::string& owner = "") {
        const std::string end(1, '\0');
        return "A=b" + end + "PROCMGR_APP_NAME=" + app + end + "PROCMGR_RUN_DIR=" + kRunDir + end +
               (owner.empty() ? std::string() : "PROCMGR_OWNER=" + owner + end);
    }

    static constexpr pid_t kBase = 90000000;
    const ProcessId leader_{kBase + 1, 500};
    LaunchTest::TemporaryFolder folder_;
};

TEST_F(InventedTree, ReadsARecordWhoseNameHoldsBracketsAndBlanks) {
    Add({leader_, 7, 8, 9, 'Z'});
    const auto stat = ProcMgr::ReadProcessStat(leader_.pid, folder_.Path());
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->id, leader_);
    EXPECT_EQ(stat->parent, 7);
    EXPECT_EQ(stat->group, 8);
    EXPECT_EQ(stat->session, 9);
    EXPECT_TRUE(stat->HasEnded());
}

TEST_F(InventedTree, ReadsNothingFromARecordThatIsCutShort) {
    folder_.Write("90000001/stat", "90000001 (cam) S 1 2");
    EXPECT_FALSE(ProcMgr::ReadProcessStat(leader_.pid, folder_.Path()));
    EXPECT_THAT(ReadProcessTable(folder_.Path()), IsEmpty());
}

TEST_F(InventedTree, HoldsDescendantsInWhateverSessionAndMembersOfTheSession) {
    Add({leader_, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 501}, leader_.pid, kBase + 2, kBase + 2});
    Add({{kBase + 3, 502}, kBase + 2, kBase + 3, kBase + 3});
    Add({{kBase + 4, 503}, 1, kBase + 4, leader_.pid});
    Add({{kBase + 5, 504}, kBase + 4, kBase + 5, kBase + 5});
    Add({{kBase + 6, 505}, 1, kBase + 6, kBase + 6});
    EXPECT_THAT(Tree(leader_), ElementsAre(leader_, ProcessId{kBase + 2, 501}, ProcessId{kBase + 3, 502},
                                           ProcessId{kBase + 4, 503}, ProcessId{kBase + 5, 504}));
}

TEST_F(InventedTree, HoldsALostProcessThatIsNamedByItsEnvironment) {
    Add({leader_, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 501}, 1, kBase + 2, kBase + 2, 'S', Mark("cam", "vekmgr")});
    Add({{kBase + 3, 501}, 1, kBase + 3, kBase + 3, 'S', Mark("cam")});
    EXPECT_THAT(Tree(leader_), ElementsAre(leader_, ProcessId{kBase + 2, 501}, ProcessId{kBase + 3, 501}));
}

TEST_F(InventedTree, LeavesLostProcessesOfOtherApplicationsOwnersAndTimesAlone) {
    Add({leader_, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 501}, 1, kBase + 2, kBase + 2, 'S', Mark("camera", "vekmgr")});
    Add({{kBase + 3, 501}, 1, kBase + 3, kBase + 3, 'S', Mark("cam", "datamaster")});
    Add({{kBase + 4, 499}, 1, kBase + 4, kBase + 4, 'S', Mark("cam", "vekmgr")});
    EXPECT_THAT(Tree(leader_), ElementsAre(leader_));
}

TEST_F(InventedTree, DoesNotTakeANumberThatWasGivenToSomebodyElse) {
    Add({{leader_.pid, 900}, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 901}, leader_.pid, leader_.pid, leader_.pid});
    EXPECT_THAT(Tree(leader_), IsEmpty());
    EXPECT_FALSE(ProcMgr::IsAlive(leader_, folder_.Path()));
}

TEST_F(InventedTree, KnowsTheSessionOfALeaderThatIsNotReapedYet) {
    Add({leader_, 1, leader_.pid, leader_.pid, 'Z'});
    Add({{kBase + 2, 501}, 1, leader_.pid, leader_.pid});
    EXPECT_THAT(Tree(leader_), ElementsAre(ProcessId{kBase + 2, 501}));
}

TEST_F(InventedTree, TrustsTheSessionOfAReapedLeaderOnlyWithTheNameInTheEnvironment) {
    Add({{kBase + 2, 501}, 1, leader_.pid, leader_.pid});
    EXPECT_THAT(Tree(leader_), IsEmpty());
    Add({{kBase + 3, 501}, 1, leader_.pid, leader_.pid, 'S', Mark("cam", "vekmgr")});
    EXPECT_THAT(Tree(leader_), ElementsAre(ProcessId{kBase + 3, 501}));
}

TEST_F(InventedTree, NeverHoldsThisProcessOrAnAncestorOfIt) {
    Add({leader_, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 501}, 1, leader_.pid, leader_.pid});
    Add({{::getpid(), 501}, kBase + 2, leader_.pid, leader_.pid, 'S', Mark("cam", "vekmgr")});
    EXPECT_THAT(Tree(leader_), ElementsAre(leader_));
}

TEST_F(InventedTree, EndsAtParentLinksThatRunInACircle) {
    Add({leader_, kBase + 2, leader_.pid, leader_.pid});
    Add({{kBase + 2, 501}, leader_.pid, kBase + 2, kBase + 2});
    EXPECT_THAT(Tree(leader_), ElementsAre(leader_, ProcessId{kBase + 2, 501}));
    EXPECT_FALSE(BelongsTo(kBase + 2, {kBase + 3, 1}, folder_.Path()));
}

TEST_F(InventedTree, KnowsWhoBelongsToALeader) {
    Add({leader_, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 501}, leader_.pid, kBase + 2, kBase + 2});
    Add({{kBase + 3, 502}, kBase + 2, kBase + 3, kBase + 3});
    Add({{kBase + 4, 503}, 1, kBase + 4, leader_.pid});
    Add({{kBase + 5, 504}, 1, kBase + 5, kBase + 5, 'S', Mark("cam", "vekmgr")});
    EXPECT_TRUE(BelongsTo(leader_.pid, leader_, folder_.Path()));
    EXPECT_TRUE(BelongsTo(kBase + 2, leader_, folder_.Path()));
    EXPECT_TRUE(BelongsTo(kBase + 3, leader_, folder_.Path()));
    EXPECT_TRUE(BelongsTo(kBase + 4, leader_, folder_.Path()));
    EXPECT_FALSE(BelongsTo(kBase + 5, leader_, folder_.Path())) << "an environment is no proof";
    EXPECT_FALSE(BelongsTo(kBase + 6, leader_, folder_.Path())) << "gone";
    EXPECT_FALSE(BelongsTo(1, leader_, folder_.Path()));
}

TEST_F(InventedTree, LetsNobodyBelongToANumberThatWasGivenToSomebodyElse) {
    Add({{leader_.pid, 900}, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 901}, leader_.pid, leader_.pid, leader_.pid});
    EXPECT_FALSE(BelongsTo(kBase + 2, leader_, folder_.Path()));
    EXPECT_FALSE(BelongsTo(leader_.pid, leader_, folder_.Path()));
}

TEST_F(InventedTree, DoesNotTakeAYoungerProcessForAParent) {
    Add({leader_, 1, leader_.pid, leader_.pid});
    Add({{kBase + 2, 600}, leader_.pid, kBase + 2, kBase + 2});
    Add({{kBase + 3, 550}, kBase + 2, kBase + 3, kBase + 3});
    EXPECT_FALSE(BelongsTo(kBase + 3, leader_, folder_.Path()));
}

class RealTree : public LaunchTest::LaunchFixture {
protected:
    TreeRoot RootOf(const ProcMgr::LaunchResult& result) const { return {result.process, "cam", "", kRunDir}; }

    void ExpectAllEnd(const std::vector<ProcessId>& processes) const {
        for (const ProcessId& process : processes) {
            EXPECT_TRUE(LaunchTest::AwaitEnd(process)) << process.pid;
        }
    }
};

TEST_F(RealTree, IsKilledWithGrandchildrenThatMadeTheirOwnSessions) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"tree"}));
    ASSERT_TRUE(result.Ok());
    const std::vector<ProcessId> processes = ReadProcesses(4);
    const std::set<ProcessId> all(processes.begin(), processes.end());
    EXPECT_EQ(SignalTree(RootOf(result), 0, {result.process.pid}), all);
    EXPECT_EQ(SignalTree(RootOf(result), SIGKILL, {result.process.pid}), all);
    ExpectAllEnd(processes);
}

TEST_F(RealTree, IsFoundWholeWithoutBeingToldAboutLeaders) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"tree"}));
    ASSERT_TRUE(result.Ok());
    const std::vector<ProcessId> processes = ReadProcesses(4);
    EXPECT_THAT(FindTrees(ReadProcessTable(), {RootOf(result)})[0], testing::UnorderedElementsAreArray(processes));
    EXPECT_EQ(SignalTree(RootOf(result), SIGTERM, {}).size(), 4U);
    ExpectAllEnd(processes);
}

TEST_F(RealTree, IsFoundByParentLinksAloneWhileNobodyIsLost) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"wait"}));
    ASSERT_TRUE(result.Ok());
    EXPECT_EQ(output_.Line(), "ready");
    EXPECT_EQ(SignalTree(RootOf(result), SIGTERM, {result.process.pid}), std::set<ProcessId>{result.process});
    EXPECT_EQ(Reap(result.process), -SIGTERM);
}

TEST_F(RealTree, StillHoldsWhatALeaderThatEndedLeftBehind) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"leave-child"}));
    ASSERT_TRUE(result.Ok());
    const std::vector<ProcessId> left = ReadProcesses(1);
    ASSERT_TRUE(LaunchTest::AwaitEnd(result.process));
    EXPECT_EQ(SignalTree(RootOf(result), SIGKILL, {result.process.pid}), std::set<ProcessId>(left.begin(), left.end()));
    ExpectAllEnd(left);
    EXPECT_EQ(Reap(result.process), 0);
    EXPECT_THAT(SignalTree(RootOf(result), SIGKILL, {}), IsEmpty());
}

TEST_F(RealTree, DoesNotReachAnotherApplication) {
    const ProcMgr::LaunchResult other = Start(LaunchTest::Probe({"wait"}));
    LaunchTest::Output second;
    ProcMgr::LaunchSpec spec;
    std::string refusal;
    ProcMgr::LaunchRequest request = LaunchTest::RequestOfThisUser();
    request.outputFd = second.WriteFd();
    request.instanceName = "lidar";
    ASSERT_TRUE(BuildLaunchSpec(ApplicationManifest(LaunchTest::Probe({"wait"})), request, spec, refusal));
    const ProcMgr::LaunchResult result = Start(spec);
    EXPECT_EQ(output_.Line(), "ready");
    EXPECT_EQ(second.Line(), "ready");
    const TreeRoot root{result.process, "lidar", "", kRunDir};
    EXPECT_EQ(SignalTree(root, SIGKILL, {}), std::set<ProcessId>{result.process});
    EXPECT_TRUE(ProcMgr::IsAlive(other.process));
    EXPECT_FALSE(BelongsTo(other.process.pid, result.process));
}

TEST_F(RealTree, IsNotSignalledUnderAnotherStartTime) {
    const ProcMgr::LaunchResult result = Start(LaunchTest::Probe({"wait"}));
    EXPECT_EQ(output_.Line(), "ready");
    const ProcessId reused{result.process.pid, result.process.startTime + 1};
    EXPECT_FALSE(ProcMgr::SignalProcess(reused, SIGKILL));
    EXPECT_FALSE(ProcMgr::OpenProcess(reused).IsOpen());
    EXPECT_THAT(SignalTree({reused, "", "", ""}, SIGKILL, {result.process.pid}), IsEmpty());
    EXPECT_TRUE(ProcMgr::IsAlive(result.process));
}

}  // namespace
