#include "daemons/procmgrd/launch/launcher.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "tests/daemons/launch/launch_fixture.h"

namespace {

using LaunchTest::Lines;
using LaunchTest::Probe;
using LaunchTest::RequestOfThisUser;
using ProcMgr::BuildLaunchSpec;
using ProcMgr::LaunchRequest;
using ProcMgr::LaunchResult;
using ProcMgr::LaunchSpec;
using ProcMgr::LaunchStage;

constexpr uint32_t kNobody = 65534;

class Launcher : public LaunchTest::LaunchFixture {
protected:
    LaunchSpec SpecOf(const ApplicationAttributes& attributes, LaunchRequest request = RequestOfThisUser()) const {
        LaunchSpec spec;
        std::string refusal;
        request.outputFd = output_.WriteFd();
        EXPECT_TRUE(BuildLaunchSpec(ApplicationManifest(attributes), request, spec, refusal)) << refusal;
        return spec;
    }
};

TEST_F(Launcher, ShowsTheChildExactlyTheDocumentedEnvironment) {
    ApplicationAttributes attributes = Probe({"environment"});
    attributes.isReporting = true;
    attributes.envArgv = {{"LANG", "C"}, {"EMPTY", ""}};
    LaunchRequest request = RequestOfThisUser();
    request.instanceName = "cam@front";
    request.dynamicPara = {{-1, {"left"}}, {0, {"a", "b"}}};
    request.appSocketPath = "/run/procmgr-test/apps/7.sock";
    request.ownerName = "vekmgr";
    request.runDir = "/run/procmgr-test";
    EXPECT_EQ(Tell(attributes, request),
              "PROC_NAME=cam@front\n"
              "PROCMGR_APP_NAME=cam@front\n"
              "PROCMGR_PARA_NEG1=left\n"
              "PROCMGR_PARA_0=a#b\n"
              "PROCMGR_RUN_DIR=/run/procmgr-test\n"
              "PROCMGR_OWNER=vekmgr\n"
              "PROCMGR_APP_SOCKET=/run/procmgr-test/apps/7.sock\n"
              "NOTIFY_SOCKET=/run/procmgr-test/apps/7.sock\n"
              "EMPTY=\n"
              "LANG=C\n");
}

TEST_F(Launcher, TellsTheChildItsOwnNumber) {
    LaunchSpec spec = SpecOf(Probe({"environment"}));
    spec.environment = {"FIRST=1"};
    spec.pidVariable = "WATCHDOG_PID";
    const LaunchResult result = Start(spec);
    ASSERT_TRUE(result.Ok());
    EXPECT_EQ(output_.Rest(), "FIRST=1\nWATCHDOG_PID=" + std::to_string(result.process.pid) + "\n");
}

TEST_F(Launcher, ShowsTheChildItsArguments) {
    LaunchRequest request = RequestOfThisUser();
    request.arguments = {"arguments", "one", "", "two words"};
    EXPECT_EQ(Tell(Probe({"arguments", "unused"}), request), "one\n\ntwo words\n");
}

TEST_F(Launcher, ReturnsTheProcessAndADescriptorThatTellsItsEnd) {
    const LaunchResult result = Start(Probe({"wait"}));
    ASSERT_TRUE(result.Ok());
    EXPECT_EQ(output_.Line(), "ready");
    EXPECT_TRUE(ProcMgr::IsAlive(result.process));
    pollfd waiting{result.pidfd.Get(), POLLIN, 0};
    EXPECT_EQ(::poll(&waiting, 1, 0), 0);
    ::kill(result.process.pid, SIGKILL);
    EXPECT_EQ(::poll(&waiting, 1, 60000), 1);
    EXPECT_EQ(Reap(result.process), -SIGKILL);
}

TEST_F(Launcher, GivesTheChildItsOwnSessionAndGroup) {
    const auto lines = Lines(Tell(Probe({"process"})));
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "own session");
    EXPECT_EQ(lines[1], "own group");
}

TEST_F(Launcher, ResetsTheSignalMaskAndIgnoredSignals) {
    ASSERT_NE(::signal(SIGPIPE, SIG_IGN), SIG_ERR);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
    const auto lines = Lines(Tell(Probe({"process"})));
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[2], "SigBlk:\t0000000000000000");
    EXPECT_EQ(lines[3], "SigIgn:\t0000000000000000");
}

TEST_F(Launcher, LeavesTheDaemonsSignalMaskAsItWas) {
    sigset_t before;
    sigset_t after;
    ::sigprocmask(SIG_BLOCK, nullptr, &before);
    Tell(Probe({"arguments"}));
    ::sigprocmask(SIG_BLOCK, nullptr, &after);
    for (int number = 1; number < NSIG; ++number) {
        EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << number;
    }
}

TEST_F(Launcher, LeavesTheChildNoDescriptorBesideStandardInputOutputAndError) {
    const ProcMgr::UniqueFd inherited(::open("/dev/null", O_RDONLY));
    const ProcMgr::UniqueFd high(::fcntl(inherited.Get(), F_DUPFD, 500));
    ASSERT_TRUE(high.IsOpen());
    EXPECT_EQ(Tell(Probe({"descriptors"})), "0\n1\n2\n");
}

TEST_F(Launcher, SendsOutputAndErrorToTheSinkAndGivesNoInput) {
    EXPECT_EQ(Tell(Probe({"streams"})), "to output\nto error\nno input\n");
}

TEST_F(Launcher, LeavesNoDescriptorOpenInTheDaemon) {
    const auto count = [] {
        const std::filesystem::directory_iterator folder("/proc/self/fd");
        return std::distance(begin(folder), end(folder));
    };
    const LaunchSpec spec = SpecOf(Probe({"arguments"}));
    EXPECT_TRUE(Launch(spec).Ok()) << "the first one opens what all of them use";
    const auto before = count();
    EXPECT_TRUE(Launch(spec).Ok());
    EXPECT_EQ(count(), before);
}

TEST_F(Launcher, ReturnsTheErrnoOfAFailedExec) {
    LaunchTest::TemporaryFolder folder;
    folder.Write("text", "no program");
    ::chmod(folder.File("text").c_str(), 0755);
    folder.Write("closed", "");
    ::chmod(folder.File("closed").c_str(), 0644);
    const std::pair<std::string, int> cases[] = {
        {folder.File("missing"), ENOENT}, {folder.File("text"), ENOEXEC}, {folder.File("closed"), EACCES}};
    for (const auto& [program, error] : cases) {
        ApplicationAttributes attributes = Probe({});
        attributes.binPath = program;
        const LaunchResult result = Launch(SpecOf(attributes));
        EXPECT_EQ(result.stage, LaunchStage::EXEC) << program;
        EXPECT_EQ(result.error, error) << program;
        EXPECT_EQ(result.process.pid, -1);
        EXPECT_FALSE(result.pidfd.IsOpen());
    }
    EXPECT_STREQ(LaunchStageName(LaunchStage::EXEC), "exec");
}

TEST_F(Launcher, ReapsTheChildOfAFailedExec) {
    ApplicationAttributes attributes = Probe({});
    attributes.binPath = "/nowhere/cam";
    EXPECT_FALSE(Launch(SpecOf(attributes)).Ok());
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(Launcher, AsksTheCallerBeforeTheApplicationRuns) {
    ProcMgr::ProcessId asked;
    const LaunchSpec spec = SpecOf(Probe({"arguments", "ran"}));
    const LaunchResult result = Launch(spec, [&asked](const ProcMgr::ProcessId& process) {
        asked = process;
        std::error_code error;
        EXPECT_NE(std::filesystem::read_symlink("/proc/" + std::to_string(process.pid) + "/exe", error), LAUNCH_PROBE);
        return true;
    });
    output_.CloseWriteEnd();
    ASSERT_TRUE(result.Ok());
    EXPECT_EQ(result.process, asked);
    EXPECT_GT(asked.startTime, 0U);
    EXPECT_EQ(output_.Rest(), "ran\n");
}

TEST_F(Launcher, NeverRunsWhatTheCallerRefused) {
    const LaunchResult result =
        Launch(SpecOf(Probe({"arguments", "ran"})), [](const ProcMgr::ProcessId&) { return false; });
    output_.CloseWriteEnd();
    EXPECT_EQ(result.stage, LaunchStage::RECORD);
    EXPECT_EQ(result.error, ECANCELED);
    EXPECT_EQ(output_.Rest(), "");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(Launcher, LeavesNoProcessWhenTheDaemonDiesBeforeTheExec) {
    const LaunchSpec spec = SpecOf(Probe({"wait"}));
    const pid_t daemon = ::fork();
    if (daemon == 0) {
        LaunchResult result = Launch(spec, [](const ProcMgr::ProcessId&) -> bool { ::_exit(3); });
        ::_exit(result.Ok() ? 1 : 2);
    }
    output_.CloseWriteEnd();
    EXPECT_EQ(output_.Rest(), "");
    // The child of the dead daemon came to us, a subreaper, and ended without having run the application.
    int status = 0;
    pid_t child = -1;
    while ((child = ::waitpid(-1, &status, 0)) > 0) {
        EXPECT_EQ(WEXITSTATUS(status), child == daemon ? 3 : 127);
    }
}

TEST_F(Launcher, GivesUpWaitingForAnExecThatHangs) {
    // A program that is opened for writing elsewhere cannot hang; a child that is stopped before its exec can.
    LaunchSpec spec = SpecOf(Probe({"wait"}));
    spec.execWaitMs = 0;
    const LaunchResult result = Launch(spec, [](const ProcMgr::ProcessId& process) {
        ::kill(process.pid, SIGSTOP);
        return ::waitpid(process.pid, nullptr, WUNTRACED) == process.pid;
    });
    output_.CloseWriteEnd();
    EXPECT_EQ(result.stage, LaunchStage::EXEC);
    EXPECT_EQ(result.error, ETIMEDOUT);
    int status = 0;
    EXPECT_GT(::waitpid(-1, &status, 0), 0);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    LaunchSpec next = SpecOf(Probe({"death-signal"}));
    EXPECT_TRUE(Start(next).Ok()) << "the next one has nothing to do with it";
}

TEST_F(Launcher, PinsTheChildToItsCores) {
    cpu_set_t own;
    CPU_ZERO(&own);
    ASSERT_EQ(::sched_getaffinity(0, sizeof own, &own), 0);
    int32_t last = 0;
    for (int32_t core = 0; core < CPU_SETSIZE; ++core) {
        last = CPU_ISSET(static_cast<size_t>(core), &own) ? core : last;
    }
    ApplicationAttributes attributes = Probe({"cores"});
    attributes.coreAffinity = {last};
    EXPECT_EQ(Tell(attributes), std::to_string(last) + "\n");
}

TEST_F(Launcher, WarnsAboutCoresThatDoNotExistAndRunsTheApplication) {
    for (const std::vector<int32_t>& cores : {std::vector<int32_t>{-1}, {0, CPU_SETSIZE}, {0, CPU_SETSIZE - 1}}) {
        ApplicationAttributes attributes = Probe({"arguments"});
        attributes.coreAffinity = cores;
        const LaunchResult result = Launch(SpecOf(attributes));
        ASSERT_TRUE(result.Ok());
        ASSERT_EQ(result.warnings.size(), 1U);
        EXPECT_EQ(DescribeWarning("cam", result.warnings[0]),
                  "Application cam: core_affinity was not applied: Invalid argument");
    }
}

TEST_F(Launcher, FailsWhenAnAttributeThatMustHoldDoesNot) {
    ApplicationAttributes attributes = Probe({"arguments", "ran"});
    attributes.mustHold = {"core_affinity", "res_group_name"};
    attributes.coreAffinity = {0, CPU_SETSIZE - 1};
    const LaunchResult inChild = Launch(SpecOf(attributes));
    EXPECT_EQ(inChild.stage, LaunchStage::AFFINITY);
    EXPECT_EQ(inChild.error, EINVAL);
    attributes.resGroupName = "procmgr-no-such-group";
    const LaunchResult beforeFork = Launch(SpecOf(attributes));
    EXPECT_EQ(beforeFork.stage, LaunchStage::RESOURCE_GROUP);
    EXPECT_EQ(beforeFork.error, ENOENT);
    output_.CloseWriteEnd();
    EXPECT_EQ(output_.Rest(), "");
}

TEST_F(Launcher, WarnsAboutAResourceGroupThatIsNotThere) {
    ApplicationAttributes attributes = Probe({"arguments"});
    attributes.resGroupName = "procmgr-no-such-group";
    const LaunchResult result = Launch(SpecOf(attributes));
    ASSERT_TRUE(result.Ok());
    ASSERT_EQ(result.warnings.size(), 1U);
    EXPECT_EQ(DescribeWarning("cam", result.warnings[0]),
              "Application cam: res_group_name was not applied: No such file or directory");
}

TEST_F(Launcher, WritesItselfIntoTheFilesOfItsResourceGroup) {
    LaunchTest::TemporaryFolder folder;
    folder.Write("cpu/cgroup.procs", "");
    folder.Write("cpu/vision/cgroup.procs", "");
    folder.Write("memory/cgroup.procs", "");
    folder.Write("memory/vision/cgroup.procs", "");
    ApplicationAttributes attributes = Probe({"arguments"});
    attributes.resGroupName = "vision";
    LaunchSpec spec = SpecOf(attributes);
    spec.resourceGroupRoots = {folder.Path(), {}};
    const LaunchResult result = Launch(spec);
    EXPECT_TRUE(result.Ok());
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_EQ(folder.Read("cpu/vision/cgroup.procs"), "0");
    EXPECT_EQ(folder.Read("memory/vision/cgroup.procs"), "0");
}

TEST_F(Launcher, OpensTheFilesOfAResourceGroupWhateverTheDaemonHasOpen) {
    LaunchTest::TemporaryFolder folder;
    folder.Write("cpu/cgroup.procs", "");
    folder.Write("cpu/vision/cgroup.procs", "");
    std::vector<ProcMgr::UniqueFd> open;
    for (int i = 0; i < 60; ++i) {
        open.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    ApplicationAttributes attributes = Probe({"arguments"});
    attributes.resGroupName = "vision";
    LaunchSpec spec = SpecOf(attributes);
    spec.resourceGroupRoots = {folder.Path(), {}};
    const LaunchResult result = Launch(spec, [](const ProcMgr::ProcessId& process) {
        const rlimit few{20, 20};
        return ::prlimit(process.pid, RLIMIT_NOFILE, &few, nullptr) == 0;
    });
    EXPECT_TRUE(result.Ok());
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_EQ(folder.Read("cpu/vision/cgroup.procs"), "0");
}

TEST_F(Launcher, MovesTheChildIntoARealResourceGroup) {
    const std::string name = "procmgr-test-" + std::to_string(::getpid());
    const std::string group = "/sys/fs/cgroup/cpu/" + name;
    if (::access("/sys/fs/cgroup/cpu/cgroup.procs", W_OK) != 0 || ::mkdir(group.c_str(), 0755) != 0) {
        GTEST_SKIP() << "no writable version 1 hierarchy of the controller cpu";
    }
    ApplicationAttributes attributes = Probe({"wait"});
    attributes.resGroupName = name;
    const LaunchResult result = Start(attributes);
    EXPECT_TRUE(result.Ok());
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_EQ(output_.Line(), "ready");
    std::ifstream procs(group + "/cgroup.procs");
    pid_t member = 0;
    procs >> member;
    EXPECT_EQ(member, result.process.pid);
    ::kill(result.process.pid, SIGKILL);
    Reap(result.process);
    EXPECT_EQ(::rmdir(group.c_str()), 0);
}

TEST_F(Launcher, GivesTheChildItsSchedulingClassAndPriority) {
    sched_param param{};
    param.sched_priority = 7;
    if (::sched_setscheduler(0, SCHED_FIFO, &param) != 0) {
        GTEST_SKIP() << "this user may not use real-time classes";
    }
    param.sched_priority = 0;
    ASSERT_EQ(::sched_setscheduler(0, SCHED_OTHER, &param), 0);
    ApplicationAttributes attributes = Probe({"scheduling"});
    attributes.setRtType = "rr";
    attributes.setRtPrio = "7";
    EXPECT_EQ(Tell(attributes), std::to_string(SCHED_RR) + " 7\n");
}

TEST_F(Launcher, RunsTheChildUnderTheUidGidAndGroupsOfTheManifest) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing the uid takes root";
    }
    ApplicationAttributes attributes = Probe({"-c", "grep -E '^(Uid|Gid|Groups):' /proc/self/status"});
    attributes.binPath = "/bin/sh";
    attributes.uid = kNobody;
    attributes.gid = 4711;
    attributes.envArgv = {{"PATH", "/usr/bin:/bin"}};
    LaunchRequest request = RequestOfThisUser();
    request.groupsOf = [](uint32_t, uint32_t gid) { return std::vector<uint32_t>{gid, 4712}; };
    EXPECT_EQ(Tell(attributes, request),
              "Uid:\t65534\t65534\t65534\t65534\nGid:\t4711\t4711\t4711\t4711\nGroups:\t4711 4712 \n");
}

TEST_F(Launcher, LeavesTheDaemonDumpableWhenTheChildTakesOnAnotherUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing the uid takes root";
    }
    ASSERT_EQ(::prctl(PR_GET_DUMPABLE), 1);
    ApplicationAttributes attributes = Probe({"-c", "id -u"});
    attributes.binPath = "/bin/sh";
    attributes.uid = kNobody;
    attributes.envArgv = {{"PATH", "/usr/bin:/bin"}};
    EXPECT_EQ(Tell(attributes), "65534\n");
    EXPECT_EQ(::prctl(PR_GET_DUMPABLE), 1);
}

TEST_F(Launcher, RunsTheChildOfAnotherOwnerUnderThatOwnersIdentity) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing the uid takes root";
    }
    ApplicationAttributes attributes = Probe({"-c", "grep -E '^(Uid|Gid|Groups|CapEff):' /proc/self/status"});
    attributes.binPath = "/bin/sh";
    attributes.envArgv = {{"PATH", "/usr/bin:/bin"}};
    LaunchRequest request = RequestOfThisUser();
    request.owner = {kNobody, kNobody, {4712}};
    EXPECT_EQ(Tell(attributes, request),
              "Uid:\t65534\t65534\t65534\t65534\nGid:\t65534\t65534\t65534\t65534\nGroups:\t4712 \n"
              "CapEff:\t0000000000000000\n");
}

TEST_F(Launcher, ClaimsResourcesWithTheRightsOfAnOwnerThatIsNotRoot) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing the uid takes root";
    }
    ApplicationAttributes attributes = Probe({});
    attributes.binPath = "/bin/true";
    attributes.setRtType = "fifo";
    attributes.setRtPrio = "50";
    LaunchRequest request = RequestOfThisUser();
    request.owner = {kNobody, kNobody, {}};
    const LaunchResult result = Launch(SpecOf(attributes, request));
    ASSERT_TRUE(result.Ok());
    ASSERT_EQ(result.warnings.size(), 1U);
    EXPECT_EQ(DescribeWarning("cam", result.warnings[0]),
              "Application cam: set_rt_type was not applied: Operation not permitted");
    attributes.mustHold = {"set_rt_prio"};
    const LaunchResult held = Launch(SpecOf(attributes, request));
    EXPECT_EQ(held.stage, LaunchStage::REAL_TIME);
    EXPECT_EQ(held.error, EPERM);
}

/// A daemon that is not root, in a process of its own; the result says what it saw.
template <typename Check>
bool AsNobody(Check check) {
    const pid_t daemon = ::fork();
    if (daemon == 0) {
        const bool isNobody = ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0;
        ::_exit(isNobody && check() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(daemon, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(Launcher, WarnsWhenADaemonWithoutPrivilegeCannotChangeTheUid) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming another user takes root";
    }
    ApplicationAttributes attributes = Probe({});
    attributes.binPath = "/bin/true";
    attributes.uid = 4711;
    attributes.gid = kNobody;
    const LaunchSpec spec = SpecOf(attributes);
    EXPECT_TRUE(AsNobody([&spec] {
        const LaunchResult result = Launch(spec);
        return result.Ok() && result.warnings.size() == 2 && result.warnings[0].attribute == "gid" &&
               result.warnings[1].attribute == "uid" && result.warnings[1].error == EPERM;
    }));
}

TEST_F(Launcher, FailsWhenTheUidMustHoldAndCannotBeChanged) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming another user takes root";
    }
    ApplicationAttributes attributes = Probe({});
    attributes.binPath = "/bin/true";
    attributes.uid = 4711;
    attributes.gid = kNobody;
    attributes.mustHold = {"uid"};
    const LaunchSpec spec = SpecOf(attributes);
    EXPECT_TRUE(AsNobody([&spec] {
        const LaunchResult result = Launch(spec);
        return result.stage == LaunchStage::UID && result.error == EPERM;
    }));
}

TEST_F(Launcher, NeverRunsTheApplicationOfAnotherOwnerUnderTheDaemonsUid) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming another user takes root";
    }
    ApplicationAttributes attributes = Probe({});
    attributes.binPath = "/bin/true";
    LaunchRequest request = RequestOfThisUser();
    request.owner = {4711, kNobody, {}};
    const LaunchSpec spec = SpecOf(attributes, request);
    EXPECT_TRUE(AsNobody([&spec] { return Launch(spec).stage == LaunchStage::GROUPS; }));
}

/// Keeps one capability as a service manager gives it to a daemon that is not root: children inherit it.
bool BecomeNobodyWithCapability(unsigned capability) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    sets[0].permitted = sets[0].effective = sets[0].inheritable = 1U << capability;
    return ::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 && ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 &&
           ::setuid(kNobody) == 0 && ::syscall(SYS_capset, &header, sets) == 0 &&
           ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0) == 0;
}

TEST_F(Launcher, KeepsTheCapabilitiesOfADaemonThatIsNotRootToTheDaemon) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "becoming another user takes root";
    }
    ApplicationAttributes attributes = Probe({"-c", "grep -E '^Cap(Inh|Prm|Eff|Amb):' /proc/self/status"});
    attributes.binPath = "/bin/sh";
    attributes.envArgv = {{"PATH", "/usr/bin:/bin"}};
    LaunchRequest request = RequestOfThisUser();
    request.owner = {kNobody, kNobody, {}};
    const LaunchSpec spec = SpecOf(attributes, request);
    const pid_t daemon = ::fork();
    if (daemon == 0) {
        ::_exit(!BecomeNobodyWithCapability(CAP_CHOWN) ? 2 : Launch(spec).Ok() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(daemon, &status, 0), daemon);
    if (WEXITSTATUS(status) == 2) {
        GTEST_SKIP() << "this kernel has no ambient capabilities";
    }
    EXPECT_EQ(status, 0);
    output_.CloseWriteEnd();
    EXPECT_EQ(output_.Rest(),
              "CapInh:\t0000000000000000\nCapPrm:\t0000000000000000\nCapEff:\t0000000000000000\n"
              "CapAmb:\t0000000000000000\n");
}

TEST_F(Launcher, AsksTheKernelForASignalAtTheDaemonsDeathWhenTold) {
    LaunchSpec spec = SpecOf(Probe({"death-signal"}));
    spec.parentDeathSignal = SIGKILL;
    EXPECT_TRUE(Start(spec).Ok());
    EXPECT_EQ(output_.Rest(), "9\n");
}

TEST_F(Launcher, WorksWithoutStandardDescriptorsOfItsOwn) {
    const LaunchSpec spec = SpecOf(Probe({"streams"}));
    const pid_t daemon = ::fork();
    if (daemon == 0) {
        ::close(0);
        ::close(1);
        ::close(2);
        LaunchSpec moved = spec;
        moved.outputFd = ::dup(spec.outputFd);
        ::close(spec.outputFd);
        const LaunchResult result = Launch(moved);
        ::_exit(result.Ok() && moved.outputFd == 0 ? 0 : 1);
    }
    output_.CloseWriteEnd();
    EXPECT_EQ(output_.Rest(), "to output\nto error\nno input\n");
    int status = 0;
    EXPECT_EQ(::waitpid(daemon, &status, 0), daemon);
    EXPECT_EQ(status, 0);
}

}  // namespace
