#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

using ChangeApp = ServerTest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ChangeApp, EmptyTerminationListSendsNoNotification) {
    Load({Manifest("cam"), Manifest("nav")});
    BringUp({"nav"});
    listener_.onNotice = [](const std::string&, AppReportState state) {
        EXPECT_NE(state, AppReportState::ACTIVELY_EXIT);
    };
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({}, {App("cam")}, {App("nav")}, result, 5000));
    EXPECT_EQ(Text(result), "cam=SUCCESS nav=SUCCESS");
}

TEST_F(ChangeApp, ThreeEmptyListsLogTheBeginOnly) {
    Load({});
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({}, {}, {}, result, 250));
    EXPECT_THAT(result, IsEmpty());
    EXPECT_EQ(
        ServerLines(),
        Strings{"INFO GrpOwnerServer receive callback(RegSsChangeAppCallBack)  ChangeApp begin. (timeout=250 ms)"});
    EXPECT_THAT(listener_.Heard(), IsEmpty());
}

TEST_F(ChangeApp, LogsTheArgumentsAAndBAsFourCharacters) {
    Load({Manifest("cam")});
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({}, {App("cam", {"a", "b"})}, {}, result, 5000));
    EXPECT_EQ(ServerLines()[1], "INFO ChangeApp: startAppList: appName:cam args:a b ");
}

TEST_F(ChangeApp, AnnouncesEachTerminationBeforeItIsLoggedAndBeforeTheManagerActs) {
    Load({Manifest("cam"), Manifest("map"), Manifest("nav"), Manifest("pos")});
    BringUp({"cam", "map", "pos"});
    Strings seenAtFirstNotice;
    listener_.onNotice = [&](const std::string& name, AppReportState state) {
        if (name == "cam" && state == AppReportState::ACTIVELY_EXIT) {
            seenAtFirstNotice = FakeLog::Get().Lines();
        }
    };
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({App("cam", {"x"}), App("map")}, {App("nav", {"y", "z"})}, {App("pos", {"w"})},
                                  result, 5000));
    EXPECT_EQ(
        seenAtFirstNotice,
        (Strings{"INFO GrpOwnerServer receive callback(RegSsChangeAppCallBack)  ChangeApp begin. (timeout=5000 ms)",
                 "INFO Notify app state begin. (name=cam,pid=0,state=ACTIVELY_EXIT)"}));
    const Strings lines = ServerLines();
    ASSERT_GE(lines.size(), 7U);
    EXPECT_EQ(Strings(lines.begin() + 2, lines.begin() + 7),
              (Strings{"INFO ChangeApp: termApplist: appName:cam args:x ",
                       "INFO Notify app state begin. (name=map,pid=0,state=ACTIVELY_EXIT)",
                       "INFO ChangeApp: termApplist: appName:map args:",
                       "INFO ChangeApp: startAppList: appName:nav args:y z ",
                       "INFO ChangeApp: restartAppList: appName:pos args:w "}));
    const Strings heard = listener_.Heard();
    ASSERT_GE(heard.size(), 2U);
    EXPECT_EQ(heard[0], "cam 0 ACTIVELY_EXIT");
    EXPECT_EQ(heard[1], "map 0 ACTIVELY_EXIT");
    EXPECT_EQ(Text(result), "nav=SUCCESS cam=SUCCESS map=SUCCESS pos=SUCCESS");
}

TEST_F(ChangeApp, AnnouncesATemplateByItsOwnName) {
    Load({Manifest("cam").Template()});
    BringUp({"cam@1", "cam@2"});
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({App("cam")}, {}, {}, result, 5000));
    EXPECT_EQ(listener_.Heard()[0], "cam 0 ACTIVELY_EXIT");
    EXPECT_EQ(Text(result), "cam@1=SUCCESS cam@2=SUCCESS");
}

TEST_F(ChangeApp, AnnouncesATerminationEvenWhenTheManagerRefusesTheChange) {
    Load({Manifest("cam"), Manifest("nav")});
    bool isRefused = false;
    clocks_.OnWait([&] {
        if (!isRefused) {
            std::vector<AppChangeInfo> result;
            isRefused = !server_.ChangeApp({App("nav")}, {}, {}, result, 5000) && result.empty();
        }
        return processManager_.Step();
    });
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({}, {App("cam")}, {}, result, 5000));
    EXPECT_TRUE(isRefused);
    EXPECT_THAT(listener_.Heard(), ElementsAre("nav 0 ACTIVELY_EXIT", "cam 100 SWITCH_ON"));
}

TEST_F(ChangeApp, UnknownApplicationFailsWithoutBlockingTheNextChange) {
    Load({Manifest("cam")});
    std::vector<AppChangeInfo> result;
    EXPECT_FALSE(server_.ChangeApp({}, {}, {App("ghost")}, result, 5000));
    EXPECT_EQ(Text(result), "ghost=RESTART_FAILED");
    result.clear();
    EXPECT_TRUE(server_.ChangeApp({}, {App("cam")}, {}, result, 5000));
}

}  // namespace ProcMgr
