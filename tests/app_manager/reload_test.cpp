#include <thread>

#include "platform/include/parse_and_depend.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Operation = FakeManifests::Operation;

class Reload : public ManagerTest {
protected:
    static FakeManifests::DependsMap DependsMap() { return ParseAndDepend::GetInstance().GetApplicationDependsMap(); }
};

TEST_F(Reload, TellsTheProcessManagerAndLogsEachStep) {
    Load({Manifest("a")});
    FakeManifests::Get().SetMatchData({{"A", "1"}, {"B", "2"}}, 5);
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RELOAD 1#/group/manifests#2#A#1#B#2#"));
    EXPECT_THAT(ManagerLines(), ElementsAre("INFO ReloadCfg begin.", "INFO first:A second:1", "INFO first:B second:2",
                                            "INFO ReloadCfg end."));
    const auto parsed = FakeManifests::Get().CallsOf(Operation::PARSE_YAML);
    EXPECT_EQ(parsed.back().text, "/group/manifests");
    EXPECT_EQ(parsed.back().matchData, (std::map<std::string, std::string>{{"A", "1"}, {"B", "2"}}));
}

TEST_F(Reload, ParsesIntoAnEmptyDependencyMap) {
    Load({Manifest("a").DependsOn({"b"}), Manifest("b")});
    FakeManifests::DependsMap before{{"unset", {}}};
    FakeManifests::Get().OnCall(Operation::PARSE_YAML, [&before] { before = DependsMap(); });
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_THAT(before, IsEmpty());
    EXPECT_EQ(DependsMap(), (FakeManifests::DependsMap{{"a", {"b"}}, {"b", {}}}));
}

TEST_F(Reload, KeepsPidStateAndRestartCountOfWhatStays) {
    Load({Manifest("a").AutoBoot(), Manifest("b"), Manifest("gone")});
    BringUp({"a", "b"});
    manager_.FindApplication("a", false)->SetRestartCount(3);
    const auto oldRecord = manager_.FindApplication("a", false);
    FakeManifests::Get().SetManifests({Manifest("a").AutoBoot().Restart("on-forever"), Manifest("b"), Manifest("new")});
    EXPECT_TRUE(manager_.ReloadCfg());
    const auto newRecord = manager_.FindApplication("a", false);
    EXPECT_NE(newRecord, oldRecord);
    EXPECT_EQ(newRecord->GetRestart(), "on-forever");
    EXPECT_EQ(newRecord->GetPid(), 100);
    EXPECT_EQ(newRecord->GetRestartCount(), 3U);
    EXPECT_EQ(StateOf("a"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(StateOf("b"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(StateOf("new"), AppStateType::INIT_STATE);
    EXPECT_EQ(manager_.FindApplicationSilently("gone"), nullptr);
}

TEST_F(Reload, KeepsInstancesOfTemplatesWithTheirRecord) {
    Load({Manifest("cam").Template()});
    BringUp({"cam@front"});
    const auto record = manager_.FindApplication("cam@front", false);
    FakeManifests::Get().SetManifests({Manifest("lidar").Template()});
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_EQ(manager_.FindApplication("cam@front", false), record);
    EXPECT_THROW((void)manager_.FindApplication("cam@rear", true), std::out_of_range);
    EXPECT_NE(manager_.FindApplication("lidar@top", true), nullptr);
}

TEST_F(Reload, ApplicationThatMovesBetweenBaseAndDrivingStartsAfresh) {
    Load({Manifest("a")});
    BringUp({"a"});
    FakeManifests::Get().SetManifests({Manifest("a").AutoBoot()});
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_EQ(StateOf("a"), AppStateType::INIT_STATE);
    EXPECT_EQ(manager_.FindApplication("a", false)->GetPid(), -1);
}

TEST_F(Reload, LogsNoTemplates) {
    Load({Manifest("cam").Template()});
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_THAT(ManagerLines(), ElementsAre("INFO ReloadCfg begin.", "INFO ReloadCfg end."));
}

// Refused and broken reloads.

TEST_F(Reload, IsRefusedWhileAChangeRuns) {
    Load({Manifest("a")});
    processManager_.ActionsFirst();
    processManager_.Then([this] {
        Forget();
        EXPECT_FALSE(manager_.ReloadCfg());
        EXPECT_THAT(ManagerLines(),
                    ElementsAre("WARN ApplicationManager: cannot reload now. (isTransitionFinish=false)"));
    });
    EXPECT_EQ(Start({"a"}), "true a=SUCCESS");
    EXPECT_TRUE(manager_.ReloadCfg());
}

TEST_F(Reload, IsRefusedWhileAnotherRuns) {
    Load({Manifest("a")});
    FakeManifests::Get().OnCall(Operation::PARSE_YAML, [this] {
        FakeManifests::Get().OnCall(Operation::PARSE_YAML, nullptr);
        Forget();
        EXPECT_FALSE(manager_.ReloadCfg());
        EXPECT_THAT(ManagerLines(),
                    ElementsAre("WARN ApplicationManager: cannot reload now. (isTransitionFinish=true)"));
    });
    EXPECT_TRUE(manager_.ReloadCfg());
}

TEST_F(Reload, WithoutAnEntryPathIsRefusedForEver) {
    EXPECT_FALSE(manager_.ReloadCfg());
    EXPECT_THAT(ManagerLines(), Contains("ERROR ApplicationManager ReloadCfg failed: startup entry path is empty"));
    Forget();
    EXPECT_FALSE(manager_.ReloadCfg());
    EXPECT_THAT(ManagerLines(), ElementsAre("WARN ApplicationManager: cannot reload now. (isTransitionFinish=true)"));
}

TEST_F(Reload, ThatTheProcessManagerRefusesLeavesEverythingAsItWas) {
    Load({Manifest("a").DependsOn({"b"}), Manifest("b")});
    const auto map = DependsMap();
    const auto record = manager_.FindApplication("a", false);
    Forget();
    FakePipe::Get().ScriptAnswer({{0, "1"}});
    EXPECT_FALSE(manager_.ReloadCfg());
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ReloadCfg begin.",
                            "ERROR ApplicationManager ReloadCfg failed: ProcMgrAgent UpdateCfg failed"));
    EXPECT_EQ(DependsMap(), map);
    EXPECT_EQ(manager_.FindApplication("a", false), record);
    EXPECT_EQ(Start({"a", "b"}), "true a=SUCCESS b=SUCCESS");
    EXPECT_TRUE(manager_.ReloadCfg());
}

TEST_F(Reload, WithAManifestErrorLeavesTheOldCollectionsAndRestoresTheOldDependencyMap) {
    Load({Manifest("a").DependsOn({"b"}), Manifest("b")});
    const auto map = DependsMap();
    const auto record = manager_.FindApplication("a", false);
    Forget();
    FakeManifests::Get().SetManifests({Manifest("other")}, 1);
    EXPECT_FALSE(manager_.ReloadCfg());
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ReloadCfg begin.", "ERROR ApplicationManager: reload config error !!!",
                            "INFO ReloadCfg end."));
    EXPECT_EQ(DependsMap(), map);
    EXPECT_EQ(manager_.FindApplication("a", false), record);
    EXPECT_EQ(manager_.FindApplicationSilently("other"), nullptr);
    FakeManifests::Get().SetManifests({Manifest("other")});
    EXPECT_TRUE(manager_.ReloadCfg());
}

TEST_F(Reload, ParserThatThrowsIsABrokenReloadAndTheNextOneWorks) {
    Load({Manifest("a")});
    const auto map = DependsMap();
    for (const Operation operation : {Operation::PARSE_YAML, Operation::PARSE_REPLACE_DATA, Operation::GET_DEPENDS}) {
        Forget();
        FakeManifests::Get().ThrowOnce(operation);
        EXPECT_FALSE(manager_.ReloadCfg());
        EXPECT_EQ(DependsMap(), map);
        EXPECT_TRUE(manager_.ReloadCfg());
    }
}

TEST_F(Reload, DependencyMapThatCannotBePutBackIsReadAnewByTheNextReload) {
    Load({Manifest("a").DependsOn({"b"}), Manifest("b")});
    const auto map = DependsMap();
    FakePipe::Get().ScriptAnswer({{0, "1"}});
    FakeManifests::Get().OnCall(Operation::PARSE_REPLACE_DATA,
                                [] { FakeManifests::Get().ThrowOnce(Operation::SET_DEPENDS); });
    EXPECT_FALSE(manager_.ReloadCfg());
    FakeManifests::Get().OnCall(Operation::PARSE_REPLACE_DATA, nullptr);
    EXPECT_THAT(DependsMap(), IsEmpty());
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_EQ(DependsMap(), map);
}

TEST_F(Reload, BootWaitsForTheDependencyMapOfARunningReload) {
    manager_.UseClocks(WaitClocks::System());
    processManager_.AnswerAtOnce();
    Load({Manifest("a").AutoBoot(), Manifest("b").AutoBoot().DependsOn({"a"})});
    std::thread boot;
    processManager_.OnCommand([this, &boot](const std::string& kind) {
        if (kind != "RELOAD") {
            return;
        }
        // The parser's map is empty now. The boot gets as far as it can before the reload goes on.
        boot = std::thread([this] { EXPECT_TRUE(manager_.StartBaseApplication()); });
        EXPECT_TRUE(FakeLog::Get().WaitForLine("INFO StartApps begin."));
    });
    EXPECT_TRUE(manager_.ReloadCfg());
    boot.join();
}

TEST_F(Reload, ReportDuringTheParseReachesTheRecordThatCounts) {
    Load({Manifest("a")});
    processManager_.Ignore("START", "a");
    Start({"a"});
    FakeManifests::Get().OnCall(Operation::PARSE_YAML,
                                [this] { manager_.ReportRunningNormalStartFromProcMgr("a", 9); });
    EXPECT_TRUE(manager_.ReloadCfg());
    EXPECT_EQ(StateOf("a"), AppStateType::RUNNING_STATE);
    EXPECT_EQ(manager_.FindApplication("a", false)->GetPid(), 9);
}

}  // namespace
}  // namespace ProcMgr
