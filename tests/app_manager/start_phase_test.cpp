#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

class StartPhase : public ManagerTest {};

TEST_F(StartPhase, StartsAChainInThreeWavesAndLogsEachStep) {
    Load({Manifest("a"), Manifest("b").DependsOn({"a"}), Manifest("c").DependsOn({"b"})});
    EXPECT_EQ(Start({"c", "b", "a"}), "true a=SUCCESS b=SUCCESS c=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#a#0#0#", "START 1#b#0#0#", "START 1#c#0#0#"));
    const Strings expected = {
        "INFO ChangeApp begin. (term=0,start=3,restart=0,timeout=5000 ms)",
        "INFO StartApps begin.",
        "INFO noDependsList in startAppMap appName=a",
        "INFO StartNoDependsApps start begin.",
        "INFO StartNoDependsApps add a to startAppList.",
        "INFO StartNoDependsApps emAgent StartApp begin.",
        "INFO StartNoDependsApps emAgent StartApp end.",
        "INFO StartNoDependsApps start end.",
        "INFO ApplicationManager: ReportStartAppResult: appName=a,status=SUCCESS.",
        "INFO ApplicationManager: ReportRestartAppResult appName=a,status=SUCCESS.",
        "INFO noDependsList in startAppMap appName=b",
        "INFO StartNoDependsApps start begin.",
        "INFO StartNoDependsApps add b to startAppList.",
        "INFO StartNoDependsApps emAgent StartApp begin.",
        "INFO StartNoDependsApps emAgent StartApp end.",
        "INFO StartNoDependsApps start end.",
        "INFO ApplicationManager: ReportStartAppResult: appName=b,status=SUCCESS.",
        "INFO ApplicationManager: ReportRestartAppResult appName=b,status=SUCCESS.",
        "INFO noDependsList in startAppMap appName=c",
        "INFO StartNoDependsApps start begin.",
        "INFO StartNoDependsApps add c to startAppList.",
        "INFO StartNoDependsApps emAgent StartApp begin.",
        "INFO StartNoDependsApps emAgent StartApp end.",
        "INFO StartNoDependsApps start end.",
        "INFO ApplicationManager: ReportStartAppResult: appName=c,status=SUCCESS.",
        "INFO ApplicationManager: ReportRestartAppResult appName=c,status=SUCCESS.",
        "INFO StartApp end.",
        "INFO ApplicationManager: ChangeAppState restart begin.",
        "INFO ApplicationManager: ChangeAppState restart end.",
        "INFO ApplicationManager: ChangeApp end.",
    };
    EXPECT_EQ(ManagerLines(), expected);
}

}  // namespace
}  // namespace ProcMgr
