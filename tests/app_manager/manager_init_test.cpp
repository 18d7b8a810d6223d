#include <cstdlib>

#include "pm_agent/procmgr_agent.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

/// The manager is made by the first test of a process that asks for it, so its environment is set before.
class ManagerInit : public ::testing::Test {
protected:
    using Strings = std::vector<std::string>;

    ManagerInit() {
        unsetenv("STARTUP_ENTRY_PATH");
        unsetenv("DATAMASTER_RUN_MODE");
        EXPECT_TRUE(ProcMgrAgent::GetInstance().IsOk());
    }

    static Strings ManagerLines() {
        Strings lines;
        for (const FakeLog::Record& record : FakeLog::Get().Records()) {
            if (record.file == "application_manager.cpp") {
                lines.push_back(record.ToString());
            }
        }
        return lines;
    }

    static ApplicationManager& Manager() { return ApplicationManager::GetInstance(); }

    static Strings AppList() {
        Strings names;
        EXPECT_TRUE(Manager().QueryAppList(names));
        return names;
    }

    FakeProcessManager processManager_;
};

TEST_F(ManagerInit, SortsTheManifestsIntoThreeCollections) {
    FakeManifests::Get().SetManifests(
        {Manifest("base2").AutoBoot(), Manifest("cam").Template(), Manifest("driving"), Manifest("base1").AutoBoot()});
    EXPECT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_THAT(AppList(), ElementsAre("base1", "base2", "driving"));
    EXPECT_THAT(Manager().BaseAppNames(), ElementsAre("base1", "base2"));
    EXPECT_NE(Manager().FindApplication("cam@front", true), nullptr);
}

TEST_F(ManagerInit, LogsEachStepOfAGivenPathAndReadsNoReplacementData) {
    FakeManifests::Get().SetManifests({Manifest("cam").Template()});
    FakeManifests::Get().SetMatchData({{"KEY", "value"}});
    EXPECT_TRUE(Manager().ApplicationMgrInit("/not/made/canonical/.."));
    EXPECT_THAT(ManagerLines(), ElementsAre("WARN Get startup entry path env failed, key=STARTUP_ENTRY_PATH",
                                            "INFO ApplicationManager init: dynamicManifests_ AppName=cam",
                                            "INFO DATAMASTER_RUN_MODE=0"));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("LOAD 1#/not/made/canonical/..#0#"));
    const auto parsed = FakeManifests::Get().CallsOf(FakeManifests::Operation::PARSE_YAML);
    ASSERT_EQ(parsed.size(), 1U);
    EXPECT_EQ(parsed[0].type, 0);
    EXPECT_EQ(parsed[0].text, "/not/made/canonical/..");
    EXPECT_THAT(parsed[0].matchData, IsEmpty());
    EXPECT_THAT(FakeManifests::Get().CallsOf(FakeManifests::Operation::PARSE_REPLACE_DATA), IsEmpty());
}

TEST_F(ManagerInit, TakesPathAndReplacementDataFromTheEnvironment) {
    setenv("STARTUP_ENTRY_PATH", "/.", 1);
    FakeManifests::Get().SetMatchData({{"A", "1"}, {"B", "2"}});
    EXPECT_TRUE(Manager().ApplicationMgrInit(""));
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO Get startup entry env success. key=STARTUP_ENTRY_PATH,value=/.",
                            "INFO Check startup entry path success, check result=/",
                            "INFO Get startup entry env success. key=STARTUP_ENTRY_PATH,value=/.",
                            "INFO Check startup entry path success, check result=/", "INFO matchData first=A second=1",
                            "INFO matchData first=B second=2", "INFO DATAMASTER_RUN_MODE=0"));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("LOAD 1#/#2#A#1#B#2#"));
    const auto replaced = FakeManifests::Get().CallsOf(FakeManifests::Operation::PARSE_REPLACE_DATA);
    ASSERT_EQ(replaced.size(), 1U);
    EXPECT_EQ(replaced[0].type, 1);
    EXPECT_EQ(replaced[0].text, "cfgmgr_env");
    EXPECT_EQ(FakeManifests::Get().CallsOf(FakeManifests::Operation::PARSE_YAML)[0].matchData,
              (std::map<std::string, std::string>{{"A", "1"}, {"B", "2"}}));
}

TEST_F(ManagerInit, GoesOnWithoutReplacementData) {
    setenv("STARTUP_ENTRY_PATH", "/", 1);
    FakeManifests::Get().SetMatchData({{"A", "1"}}, 3);
    EXPECT_TRUE(Manager().ApplicationMgrInit(""));
    EXPECT_THAT(ManagerLines(), Contains("WARN ParseToReplaceData failed."));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("LOAD 1#/#1#A#1#"));
}

TEST_F(ManagerInit, PathThatDoesNotExistLeavesTheEntryPathEmptyAndFails) {
    setenv("STARTUP_ENTRY_PATH", "/no/such/path", 1);
    EXPECT_FALSE(Manager().ApplicationMgrInit(""));
    EXPECT_EQ(ApplicationManagerPeer::StartupEntryPath(), "");
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO Get startup entry env success. key=STARTUP_ENTRY_PATH,value=/no/such/path",
                            "ERROR Check startup entry path failed, path=/no/such/path",
                            "INFO Get startup entry env success. key=STARTUP_ENTRY_PATH,value=/no/such/path",
                            "ERROR Check startup entry path failed, path=/no/such/path",
                            "ERROR ApplicationManager init failed: startup entry path is empty"));
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
}

TEST_F(ManagerInit, EntryPathIsThereAsSoonAsTheManagerIs) {
    setenv("STARTUP_ENTRY_PATH", "/", 1);
    EXPECT_EQ(ApplicationManagerPeer::StartupEntryPath(), "/");
}

TEST_F(ManagerInit, FailsWhenTheProcessManagerRefusesTheConfiguration) {
    FakePipe::Get().SetAnswer({0, "1"});
    FakeManifests::Get().SetManifests({Manifest("a")});
    EXPECT_FALSE(Manager().ApplicationMgrInit("/group"));
    EXPECT_THAT(ManagerLines(), Contains("ERROR ApplicationManager init failed: LoadStartupCfgInfo failed"));
    EXPECT_THAT(AppList(), IsEmpty());
}

TEST_F(ManagerInit, ManifestErrorStillYieldsTheApplicationsThatWereParsed) {
    FakeManifests::Get().SetManifests({Manifest("a")}, 1);
    EXPECT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_THAT(ManagerLines(), Contains("ERROR ApplicationManager init: parse application manifest error !!!"));
    EXPECT_THAT(AppList(), ElementsAre("a"));
}

TEST_F(ManagerInit, FirstOfTwoManifestsOfOneNameWinsSilently) {
    FakeManifests::Get().SetManifests({Manifest("a").Restart("first"), Manifest("a").Restart("second")});
    EXPECT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_EQ(Manager().FindApplication("a", false)->GetRestart(), "first");
    EXPECT_THAT(ManagerLines(), ElementsAre("WARN Get startup entry path env failed, key=STARTUP_ENTRY_PATH",
                                            "INFO DATAMASTER_RUN_MODE=0"));
}

TEST_F(ManagerInit, SecondTemplateOfOneNameIsDroppedWithoutAMessage) {
    FakeManifests::Get().SetManifests(
        {Manifest("cam").Template().Restart("first"), Manifest("cam").Template().Restart("second")});
    EXPECT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_EQ(Manager().FindApplication("cam@front", true)->GetRestart(), "first");
    EXPECT_THAT(ManagerLines(),
                ElementsAre("WARN Get startup entry path env failed, key=STARTUP_ENTRY_PATH",
                            "INFO ApplicationManager init: dynamicManifests_ AppName=cam", "INFO DATAMASTER_RUN_MODE=0",
                            "INFO ApplicationManager: CreateDynamicApplication cam@front"));
}

TEST_F(ManagerInit, ManifestBothAutoBootAndTemplateIsABaseApplication) {
    FakeManifests::Get().SetManifests({Manifest("cam").Template().AutoBoot()});
    EXPECT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_THAT(Manager().BaseAppNames(), ElementsAre("cam"));
    EXPECT_THAT(ManagerLines(), Not(Contains("INFO ApplicationManager init: dynamicManifests_ AppName=cam")));
}

TEST_F(ManagerInit, RunModeSetsTheTimeouts) {
    const struct {
        const char* mode;
        const char* line;
        int32_t start;
        int32_t termAndRestart;
    } table[] = {
        {nullptr, "INFO DATAMASTER_RUN_MODE=0", 4500, 5000}, {"0", "INFO DATAMASTER_RUN_MODE=0", 4500, 5000},
        {"", "INFO DATAMASTER_RUN_MODE=", 4500, 5000},       {"11", "INFO DATAMASTER_RUN_MODE=11", 4500, 5000},
        {" 1", "INFO DATAMASTER_RUN_MODE= 1", 4500, 5000},   {"1", "INFO DATAMASTER_RUN_MODE=1", 18000000, 18000000},
    };
    for (const auto& row : table) {
        if (row.mode == nullptr) {
            unsetenv("DATAMASTER_RUN_MODE");
        } else {
            setenv("DATAMASTER_RUN_MODE", row.mode, 1);
        }
        Manager();
        FakeLog::Get().Clear();
        Manager().InitAppCond();
        EXPECT_THAT(ManagerLines(), ElementsAre(row.line));
        EXPECT_EQ(ApplicationManagerPeer::BaseStart().timeout, row.start);
        EXPECT_EQ(ApplicationManagerPeer::Start().timeout, row.start);
        EXPECT_EQ(ApplicationManagerPeer::Term().timeout, row.termAndRestart);
        EXPECT_EQ(ApplicationManagerPeer::Restart().timeout, row.termAndRestart);
        EXPECT_EQ(ApplicationManagerPeer::ChangeTimeout(), 4500);
        EXPECT_FALSE(ApplicationManagerPeer::BaseStart().hasProgress);
        EXPECT_FALSE(ApplicationManagerPeer::Start().hasProgress);
        EXPECT_TRUE(ApplicationManagerPeer::Term().hasProgress);
        EXPECT_FALSE(ApplicationManagerPeer::Restart().isComplete);
    }
}

// Look-up.

TEST_F(ManagerInit, LookUpOfAnUnknownNameLogsAndIsEmpty) {
    Manager();
    FakeLog::Get().Clear();
    EXPECT_EQ(Manager().FindApplication("ghost", false), nullptr);
    EXPECT_THAT(ManagerLines(), ElementsAre("INFO ApplicationManager: FindApplication ghost (no application found)."));
}

TEST_F(ManagerInit, SilentLookUpLogsNothing) {
    Manager();
    FakeLog::Get().Clear();
    EXPECT_EQ(Manager().FindApplicationSilently("ghost"), nullptr);
    EXPECT_THAT(ManagerLines(), IsEmpty());
}

TEST_F(ManagerInit, LookUpMakesExactlyOneInstanceOfTheFirstMatchingTemplate) {
    FakeManifests::Get().SetManifests({Manifest("cam").Template().Restart("on-failure")});
    ASSERT_TRUE(Manager().ApplicationMgrInit("/group"));
    FakeLog::Get().Clear();
    EXPECT_EQ(Manager().FindApplication("cam@front", false), nullptr);
    const auto made = Manager().FindApplication("cam@front", true);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->GetAppName(), "cam@front");
    EXPECT_EQ(made->GetRestart(), "on-failure");
    EXPECT_EQ(Manager().FindApplication("cam@front", true), made);
    EXPECT_EQ(Manager().FindApplication("cam@front", false), made);
    EXPECT_THAT(ManagerLines(),
                ElementsAre("INFO ApplicationManager: FindApplication cam@front (no application found).",
                            "INFO ApplicationManager: CreateDynamicApplication cam@front"));
}

TEST_F(ManagerInit, LookUpThatShallMakeAnInstanceOfNothingThrows) {
    FakeManifests::Get().SetManifests({Manifest("cam").Template()});
    ASSERT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_THROW((void)Manager().FindApplication("ghost", true), std::out_of_range);
    EXPECT_THROW((void)Manager().FindApplication("cam", true), std::out_of_range);
}

TEST_F(ManagerInit, BaseApplicationHidesADrivingOneOfTheSameName) {
    FakeManifests::Get().SetManifests({Manifest("a").Restart("driving"), Manifest("a").AutoBoot().Restart("base")});
    ASSERT_TRUE(Manager().ApplicationMgrInit("/group"));
    EXPECT_EQ(Manager().FindApplication("a", false)->GetRestart(), "base");
}

TEST_F(ManagerInit, RemovalTakesInstancesThatAreDownAndNothingElse) {
    const struct {
        AppStateType state;
        bool isRemoved;
    } table[] = {{AppStateType::INIT_STATE, true},
                 {AppStateType::TERMINATING_STATE, true},
                 {AppStateType::TERMINATED_STATE, true},
                 {AppStateType::RUNNING_STATE, false},
                 {AppStateType::WAIT_READY_STATE, false}};
    FakeManifests::Get().SetManifests(
        {Manifest("cam").Template(), Manifest("a"), Manifest("b").AutoBoot(), Manifest("t").AutoBoot().Template()});
    ASSERT_TRUE(Manager().ApplicationMgrInit("/group"));
    for (const auto& row : table) {
        const auto app = Manager().FindApplication("cam@x", true);
        ASSERT_TRUE(app->CompareAndSetAppState(app->GetAppStateType(), row.state));
        Manager().RemoveDynamicApplication("cam@x");
        EXPECT_EQ(Manager().FindApplicationSilently("cam@x") == nullptr, row.isRemoved);
    }
    for (const char* name : {"a", "b", "t"}) {
        Manager().RemoveDynamicApplication(name);
        EXPECT_NE(Manager().FindApplicationSilently(name), nullptr) << name;
    }
    Manager().RemoveDynamicApplication("ghost");
}

TEST_F(ManagerInit, ApplicationsToStopAreThoseThatAreNeitherNewNorEnded) {
    FakeManifests::Get().SetManifests({Manifest("init"), Manifest("run"), Manifest("wait"), Manifest("terminating"),
                                       Manifest("ended"), Manifest("base").AutoBoot()});
    ASSERT_TRUE(Manager().ApplicationMgrInit("/group"));
    const std::pair<const char*, AppStateType> states[] = {{"run", AppStateType::RUNNING_STATE},
                                                           {"wait", AppStateType::WAIT_READY_STATE},
                                                           {"terminating", AppStateType::TERMINATING_STATE},
                                                           {"ended", AppStateType::TERMINATED_STATE},
                                                           {"base", AppStateType::RUNNING_STATE}};
    for (const auto& [name, state] : states) {
        ASSERT_TRUE(Manager().FindApplication(name, false)->CompareAndSetAppState(AppStateType::INIT_STATE, state));
    }
    EXPECT_THAT(Manager().DrivingAppNamesToStop(), ElementsAre("run", "terminating", "wait"));
}

}  // namespace
}  // namespace ProcMgr
