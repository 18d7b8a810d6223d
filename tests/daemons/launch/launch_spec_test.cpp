#include "daemons/procmgrd/launch/launch_spec.h"

#include <gmock/gmock.h>
#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using ProcMgr::BuildLaunchSpec;
using ProcMgr::LaunchRequest;
using ProcMgr::LaunchSpec;
using testing::ElementsAre;
using testing::IsEmpty;

class BuildSpec : public testing::Test {
protected:
    BuildSpec() {
        attributes_.appName = "cam";
        attributes_.binPath = "/opt/cam";
        request_.runDir = "/run/procmgr";
        request_.soHostPath = "/usr/bin/procmgr-so-host";
        request_.groupsOf = [](uint32_t uid, uint32_t gid) { return std::vector<uint32_t>{gid, uid + 1}; };
    }

    LaunchSpec Build() const {
        LaunchSpec spec;
        std::string refusal;
        EXPECT_TRUE(BuildLaunchSpec(ApplicationManifest(attributes_), request_, spec, refusal)) << refusal;
        EXPECT_EQ(refusal, "");
        return spec;
    }

    std::string Refusal() const {
        LaunchSpec spec;
        spec.appName = "untouched";
        std::string refusal;
        EXPECT_FALSE(BuildLaunchSpec(ApplicationManifest(attributes_), request_, spec, refusal));
        EXPECT_EQ(spec.appName, "untouched");
        return refusal;
    }

    ApplicationAttributes attributes_;
    LaunchRequest request_;
};

TEST_F(BuildSpec, TakesTheArgumentsOfTheRequest) {
    attributes_.arguments = {"--own"};
    request_.arguments = {"--asked", ""};
    EXPECT_THAT(Build().argv, ElementsAre("/opt/cam", "--asked", ""));
}

TEST_F(BuildSpec, TakesTheArgumentsOfTheManifestWhenTheRequestHasNone) {
    attributes_.arguments = {"--own", "1"};
    EXPECT_THAT(Build().argv, ElementsAre("/opt/cam", "--own", "1"));
}

TEST_F(BuildSpec, NamesTheApplicationAndItsRunDirectoryInTheEnvironment) {
    EXPECT_THAT(Build().environment,
                ElementsAre("PROC_NAME=cam", "PROCMGR_APP_NAME=cam", "PROCMGR_RUN_DIR=/run/procmgr"));
}

TEST_F(BuildSpec, NamesTheInstanceInsteadOfItsTemplate) {
    request_.instanceName = "cam@front";
    const LaunchSpec spec = Build();
    EXPECT_EQ(spec.appName, "cam@front");
    EXPECT_THAT(spec.environment,
                ElementsAre("PROC_NAME=cam@front", "PROCMGR_APP_NAME=cam@front", "PROCMGR_RUN_DIR=/run/procmgr"));
}

TEST_F(BuildSpec, PassesEachDynamicParameterWithItsValuesJoined) {
    request_.dynamicPara = {{-1, {"n"}}, {0, {"a", "", "c"}}, {2, {}}};
    EXPECT_THAT(Build().environment,
                ElementsAre("PROC_NAME=cam", "PROCMGR_APP_NAME=cam", "PROCMGR_PARA_NEG1=n", "PROCMGR_PARA_0=a##c",
                            "PROCMGR_PARA_2=", "PROCMGR_RUN_DIR=/run/procmgr"));
}

TEST_F(BuildSpec, NamesTheSmallestIndexToo) {
    request_.dynamicPara = {{INT32_MIN, {"v"}}};
    EXPECT_THAT(Build().environment, testing::Contains("PROCMGR_PARA_NEG2147483648=v"));
}

TEST_F(BuildSpec, GivesTheAddressUnderBothNamesToApplicationsThatTellAboutThemselvesOnly) {
    request_.appSocketPath = "/run/procmgr/apps/cam.sock";
    EXPECT_THAT(Build().environment, testing::Not(testing::Contains(testing::HasSubstr("SOCKET"))));
    const auto isGiven = testing::IsSupersetOf(
        {"PROCMGR_APP_SOCKET=/run/procmgr/apps/cam.sock", "NOTIFY_SOCKET=/run/procmgr/apps/cam.sock"});
    attributes_.isReporting = true;
    EXPECT_THAT(Build().environment, isGiven);
    attributes_.isReporting = false;
    attributes_.isRosNode = true;
    EXPECT_THAT(Build().environment, isGiven);
    attributes_.isRosNode = false;
    attributes_.heartBeatSwitch = true;
    EXPECT_THAT(Build().environment, isGiven);
}

TEST_F(BuildSpec, TellsPeriodAndTimeOutOfTheHeartbeatToThoseThatBeatOnly) {
    request_.heartBeatPeriodMs = 250;
    request_.heartBeatMisses = 3;
    attributes_.isReporting = true;
    EXPECT_THAT(Build().environment, testing::Not(testing::Contains(testing::HasSubstr("WATCHDOG"))));
    EXPECT_EQ(Build().pidVariable, "");
    attributes_.heartBeatSwitch = true;
    EXPECT_THAT(Build().environment,
                testing::IsSupersetOf({"PROCMGR_HEARTBEAT_PERIOD_MS=250", "WATCHDOG_USEC=750000"}));
    EXPECT_EQ(Build().pidVariable, "WATCHDOG_PID");
}

TEST_F(BuildSpec, KeepsAddressAndHeartbeatFromTheManifestWhereItSetsThemItself) {
    attributes_.envArgv = {{"NOTIFY_SOCKET", "/theirs"}, {"WATCHDOG_USEC", "1"}, {"WATCHDOG_PID", "2"}};
    EXPECT_THAT(Build().environment,
                testing::IsSupersetOf({"NOTIFY_SOCKET=/theirs", "WATCHDOG_USEC=1", "WATCHDOG_PID=2"}))
        << "nothing of ours has these names here";
    attributes_.heartBeatSwitch = true;
    request_.appSocketPath = "/ours";
    request_.heartBeatPeriodMs = 10;
    request_.heartBeatMisses = 2;
    const LaunchSpec spec = Build();
    EXPECT_THAT(spec.environment, testing::IsSupersetOf({"NOTIFY_SOCKET=/ours", "WATCHDOG_USEC=20000"}));
    EXPECT_THAT(spec.environment, testing::Not(testing::Contains("WATCHDOG_PID=2")));
    std::vector<std::string> leftOut;
    for (const ProcMgr::LaunchWarning& warning : spec.warnings) {
        leftOut.push_back(warning.attribute);
    }
    EXPECT_THAT(leftOut,
                ElementsAre("NOTIFY_SOCKET of env_argv", "WATCHDOG_PID of env_argv", "WATCHDOG_USEC of env_argv"));
}

TEST_F(BuildSpec, TellsNoHeartbeatThatNobodyWatches) {
    attributes_.heartBeatSwitch = true;
    EXPECT_THAT(Build().environment, testing::Not(testing::Contains(testing::HasSubstr("WATCHDOG"))));
    EXPECT_EQ(Build().pidVariable, "");
}

TEST_F(BuildSpec, CountsTheTimeOutOfALongHeartbeatWithoutOverflow) {
    attributes_.heartBeatSwitch = true;
    request_.heartBeatPeriodMs = 3600000;
    request_.heartBeatMisses = 1000;
    EXPECT_THAT(Build().environment, testing::Contains("WATCHDOG_USEC=3600000000000"));
}

TEST_F(BuildSpec, NamesTheOwnerWhenThereIsOne) {
    request_.ownerName = "vekmgr";
    EXPECT_THAT(Build().environment, testing::Contains("PROCMGR_OWNER=vekmgr"));
}

TEST_F(BuildSpec, PutsTheVariablesOfTheManifestLast) {
    attributes_.envArgv = {{"PATH", "/usr/bin:/bin"}, {"A", ""}};
    EXPECT_THAT(Build().environment, ElementsAre("PROC_NAME=cam", "PROCMGR_APP_NAME=cam",
                                                 "PROCMGR_RUN_DIR=/run/procmgr", "A=", "PATH=/usr/bin:/bin"));
}

TEST_F(BuildSpec, LetsTheManifestReplaceTheProcessName) {
    attributes_.envArgv = {{"PROC_NAME", "datamaster"}};
    EXPECT_THAT(Build().environment,
                ElementsAre("PROCMGR_APP_NAME=cam", "PROCMGR_RUN_DIR=/run/procmgr", "PROC_NAME=datamaster"));
    EXPECT_THAT(Build().warnings, IsEmpty());
}

TEST_F(BuildSpec, KeepsTheVariablesByWhichAnApplicationIsFoundAndWarns) {
    attributes_.envArgv = {{"PROCMGR_APP_NAME", "other"}, {"PROCMGR_PARA_0", "x"}};
    const LaunchSpec spec = Build();
    EXPECT_THAT(spec.environment, ElementsAre("PROC_NAME=cam", "PROCMGR_APP_NAME=cam", "PROCMGR_RUN_DIR=/run/procmgr"));
    ASSERT_EQ(spec.warnings.size(), 2U);
    EXPECT_EQ(DescribeWarning(spec.appName, spec.warnings[0]),
              "Application cam: PROCMGR_APP_NAME of env_argv was not applied: Operation not permitted");
    EXPECT_EQ(DescribeWarning(spec.appName, spec.warnings[1]),
              "Application cam: PROCMGR_PARA_0 of env_argv was not applied: Operation not permitted");
}

TEST_F(BuildSpec, RunsASharedObjectInOurHost) {
    attributes_.isSo = true;
    attributes_.soPath = "/opt/objects";
    attributes_.soName = "cam.so";
    request_.arguments = {"--fast"};
    const LaunchSpec spec = Build();
    EXPECT_EQ(spec.executable, "/usr/bin/procmgr-so-host");
    EXPECT_THAT(spec.argv, ElementsAre("/usr/bin/procmgr-so-host", "/opt/objects/cam.so", "--fast"));
}

TEST_F(BuildSpec, RunsASharedObjectInTheProcessItIsBoundTo) {
    attributes_.isSo = true;
    attributes_.soPath = "/opt/objects/";
    attributes_.soName = "cam.so";
    attributes_.processBindPath = "/opt/host";
    EXPECT_THAT(Build().argv, ElementsAre("/opt/host", "/opt/objects/cam.so"));
}

TEST_F(BuildSpec, TakesThePathOfASharedObjectAloneToo) {
    attributes_.isSo = true;
    attributes_.soPath = "/opt/objects/cam.so";
    EXPECT_THAT(Build().argv, ElementsAre("/usr/bin/procmgr-so-host", "/opt/objects/cam.so"));
}

TEST_F(BuildSpec, RefusesASharedObjectWithoutAPath) {
    attributes_.isSo = true;
    EXPECT_EQ(Refusal(), "Application cam is not started: is_so is set, but so_path and so_name are empty");
}

TEST_F(BuildSpec, RefusesAnApplicationWithoutAProgram) {
    attributes_.binPath.clear();
    EXPECT_EQ(Refusal(), "Application cam is not started: bin_path is empty");
}

TEST_F(BuildSpec, RefusesTextsThatAProgramWouldSeeCutShort) {
    request_.arguments = {std::string("a\0b", 3)};
    EXPECT_EQ(Refusal(), "Application cam is not started: an argument holds a NUL byte");
}

TEST_F(BuildSpec, RefusesAVariableWhoseNameIsNone) {
    attributes_.envArgv = {{"A=B", "c"}};
    EXPECT_EQ(Refusal(), "Application cam is not started: env_argv: \"A=B\" cannot be the name of a variable");
}

TEST_F(BuildSpec, GivesARootOwnerTheIdentityOfTheManifest) {
    attributes_.uid = 1000;
    attributes_.gid = 2000;
    const LaunchSpec spec = Build();
    EXPECT_EQ(spec.uid, 1000U);
    EXPECT_EQ(spec.gid, 2000U);
    EXPECT_THAT(spec.groups, ElementsAre(2000U, 1001U));
    EXPECT_TRUE(spec.ownerIsRoot);
}

TEST_F(BuildSpec, GivesAnotherOwnerItsOwnIdentityAndGroups) {
    request_.owner = {1000, 1000, {1000, 44}};
    attributes_.uid = 1000;
    attributes_.gid = 44;
    const LaunchSpec spec = Build();
    EXPECT_EQ(spec.uid, 1000U);
    EXPECT_EQ(spec.gid, 44U);
    EXPECT_THAT(spec.groups, ElementsAre(1000U, 44U));
    EXPECT_FALSE(spec.ownerIsRoot);
}

TEST_F(BuildSpec, RefusesAForeignUidToAnOwnerThatIsNotRoot) {
    request_.owner = {1000, 1000, {44}};
    attributes_.uid = 1001;
    EXPECT_EQ(Refusal(),
              "Application cam is not started: the owner with uid 1000 and gid 1000 may run it only under its own uid, "
              "not under uid 1001");
}

TEST_F(BuildSpec, RefusesAForeignGidToAnOwnerThatIsNotRoot) {
    request_.owner = {1000, 1000, {44}};
    attributes_.uid = 1000;
    attributes_.gid = 45;
    EXPECT_EQ(Refusal(),
              "Application cam is not started: the owner with uid 1000 and gid 1000 may run it only under a gid of its "
              "own, not under gid 45");
}

TEST_F(BuildSpec, NeverGivesRootToAnOwnerThatIsNotRoot) {
    request_.owner = {1000, 1000, {}};
    const LaunchSpec spec = Build();
    EXPECT_EQ(spec.uid, 1000U);
    EXPECT_EQ(spec.gid, 1000U);
}

TEST_F(BuildSpec, RefusesRootThatMustHoldToAnOwnerThatIsNotRoot) {
    request_.owner = {1000, 1000, {}};
    attributes_.mustHold = {"uid"};
    EXPECT_EQ(Refusal(),
              "Application cam is not started: the owner with uid 1000 and gid 1000 may run it only under its own uid, "
              "not under uid 0");
}

struct SchedulingCase {
    const char* type;
    const char* priority;
    int schedulingClass;
    int schedulingPriority;
    const char* warning;
};

TEST_F(BuildSpec, UnderstandsEverySchedulingClassAndPriority) {
    const SchedulingCase cases[] = {
        {"", "", ProcMgr::kNoSchedulingClass, 0, ""},
        {"fifo", "20", SCHED_FIFO, 20, ""},
        {"RR", "99", SCHED_RR, 99, ""},
        {"fifo", "", SCHED_FIFO, 1, ""},
        {"other", "0", SCHED_OTHER, 0, ""},
        {"batch", "", SCHED_BATCH, 0, ""},
        {"idle", "", SCHED_IDLE, 0, ""},
        {"fifo", "0", ProcMgr::kNoSchedulingClass, 0, "set_rt_prio"},
        {"fifo", "100", ProcMgr::kNoSchedulingClass, 0, "set_rt_prio"},
        {"fifo", "12x", ProcMgr::kNoSchedulingClass, 0, "set_rt_prio"},
        {"other", "3", ProcMgr::kNoSchedulingClass, 0, "set_rt_prio"},
        {"fast", "3", ProcMgr::kNoSchedulingClass, 0, "set_rt_type"},
        {"", "3", ProcMgr::kNoSchedulingClass, 0, "set_rt_type"},
    };
    for (const SchedulingCase& row : cases) {
        SCOPED_TRACE(std::string(row.type) + " " + row.priority);
        attributes_.setRtType = row.type;
        attributes_.setRtPrio = row.priority;
        const LaunchSpec spec = Build();
        EXPECT_EQ(spec.schedulingClass, row.schedulingClass);
        EXPECT_EQ(spec.schedulingPriority, row.schedulingPriority);
        EXPECT_EQ(spec.warnings.empty() ? "" : spec.warnings[0].attribute, row.warning);
    }
}

TEST_F(BuildSpec, RefusesASchedulingClassThatMustHoldAndIsNone) {
    attributes_.setRtType = "fast";
    attributes_.mustHold = {"set_rt_type"};
    EXPECT_EQ(Refusal(),
              "Application cam is not started: set_rt_type must hold, but set_rt_type \"fast\" with set_rt_prio \"\" "
              "is no class and priority");
}

TEST(FindSoHost, PrefersTheVariable) {
    ::setenv("PROCMGR_SO_HOST", "/opt/host", 1);
    EXPECT_EQ(ProcMgr::FindSoHost(), "/opt/host");
}

TEST(FindSoHost, LooksBesideTheOwnExecutable) {
    ::unsetenv("PROCMGR_SO_HOST");
    EXPECT_THAT(ProcMgr::FindSoHost(), testing::MatchesRegex("/.*/procmgr-so-host"));
}

}  // namespace
