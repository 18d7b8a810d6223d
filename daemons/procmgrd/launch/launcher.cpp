#include "daemons/procmgrd/launch/launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "daemons/procmgrd/launch/child_maker.h"
#include "daemons/procmgrd/launch/child_setup.h"
#include "daemons/procmgrd/launch/resource_group.h"

namespace ProcMgr {
namespace {

struct StageRow {
    LaunchStage stage;
    const char* name;
    const char* attribute;  ///< the manifest's key; null when the stage always has to succeed
};

constexpr StageRow kStages[] = {
    {LaunchStage::NONE, "none", nullptr},
    {LaunchStage::PREPARE, "prepare", nullptr},
    {LaunchStage::FORK, "fork", nullptr},
    {LaunchStage::RECORD, "record", nullptr},
    {LaunchStage::SESSION, "session", nullptr},
    {LaunchStage::STDIO, "stdio", nullptr},
    {LaunchStage::RESOURCE_GROUP, "resource group", "res_group_name"},
    {LaunchStage::AFFINITY, "core affinity", "core_affinity"},
    {LaunchStage::REAL_TIME, "scheduling class", "set_rt_type"},
    {LaunchStage::GROUPS, "groups", "gid"},
    {LaunchStage::GID, "gid", "gid"},
    {LaunchStage::UID, "uid", "uid"},
    {LaunchStage::PARENT_DEATH, "parent death signal", nullptr},
    {LaunchStage::EXEC, "exec", nullptr},
};
static_assert(std::size(kStages) == kLaunchStageCount, "one row per stage");

const StageRow* RowOf(LaunchStage stage) {
    const auto index = static_cast<size_t>(stage);
    return index < std::size(kStages) ? &kStages[index] : nullptr;
}

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

/// Lifts a descriptor above standard input, output and error, so that setting those up cannot overwrite it.
bool Lift(int fd, UniqueFd& lifted) {
    lifted.Reset(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
    return lifted.IsOpen();
}

bool OpenPipe(Pipe& pipe) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    const UniqueFd readEnd(ends[0]);
    const UniqueFd writeEnd(ends[1]);
    return Lift(readEnd.Get(), pipe.readEnd) && Lift(writeEnd.Get(), pipe.writeEnd);
}

/// One start, from the description to the exec.
class Start {
public:
    explicit Start(const LaunchSpec& spec) : spec_(spec) { result_.warnings = spec.warnings; }

    /// True when its child may still look at the plan.
    bool IsStuck() const { return isStuck_; }

    LaunchResult Run(const BeforeExec& beforeExec) {
        if (Prepare() && Fork()) {
            CloseChildEnds();
            if (!beforeExec || beforeExec(result_.process)) {
                LetGo();
                AwaitExec();
            } else {
                Fail(LaunchStage::RECORD, ECANCELED);
            }
        }
        if (!result_.Ok()) {
            Abandon();
        }
        return std::move(result_);
    }

private:
    bool Fail(LaunchStage stage, int error) {
        result_.stage = stage;
        result_.error = error;
        return false;
    }

    void Warn(const char* attribute, int error) {
        const auto isSame = [attribute](const LaunchWarning& warning) { return warning.attribute == attribute; };
        if (std::none_of(result_.warnings.begin(), result_.warnings.end(), isSame)) {
            result_.warnings.push_back({attribute, error});
        }
    }

    bool MustHold(const char* attribute) const { return spec_.mustHold.count(attribute) != 0; }

    /// An attribute that cannot be applied is left out with a warning, unless it must hold.
    bool LeaveOut(LaunchStage stage, int error) {
        const char* const attribute = RowOf(stage)->attribute;
        if (MustHold(attribute)) {
            return Fail(stage, error);
        }
        Warn(attribute, error);
        return true;
    }

    bool Prepare() {
        return PrepareDescriptors() && PrepareResourceGroup() && PrepareAffinity() && PrepareIdentity() &&
               PrepareCommand();
    }

    bool PrepareDescriptors() {
        const UniqueFd devNull(::open("/dev/null", O_RDWR | O_CLOEXEC));
        const int output = spec_.outputFd >= 0 ? spec_.outputFd : devNull.Get();
        if (!devNull.IsOpen() || !Lift(devNull.Get(), null_) || !Lift(output, output_) || !OpenPipe(go_) ||
            !OpenPipe(report_)) {
            return Fail(LaunchStage::PREPARE, errno);
        }
        plan_.nullFd = null_.Get();
        plan_.outputFd = output_.Get();
        plan_.goFd = go_.readEnd.Get();
        plan_.goWriteFd = go_.writeEnd.Get();
        plan_.reportFd = report_.writeEnd.Get();
        plan_.highestFd = HighestFdWithoutCloseRange();
        return true;
    }

    bool PrepareResourceGroup() {
        group_ = FindResourceGroup(spec_.resourceGroup, spec_.resourceGroupRoots);
        plan_.groupFiles = Pointers(group_.procsFiles);
        return group_.error == 0 || LeaveOut(LaunchStage::RESOURCE_GROUP, group_.error);
    }

    bool PrepareAffinity() {
        CPU_ZERO(&plan_.cores);
        const auto isNone = [](int32_t core) { return core < 0 || core >= CPU_SETSIZE; };
        if (std::any_of(spec_.coreAffinity.begin(), spec_.coreAffinity.end(), isNone)) {
            return LeaveOut(LaunchStage::AFFINITY, EINVAL);
        }
        for (const int32_t core : spec_.coreAffinity) {
            CPU_SET(static_cast<size_t>(core), &plan_.cores);
        }
        plan_.hasCores = !spec_.coreAffinity.empty();
        plan_.schedulingClass = spec_.schedulingClass;
        plan_.schedulingPriority = spec_.schedulingPriority;
        return true;
    }

    bool PrepareIdentity() {
        const bool isRoot = ::geteuid() == 0;
        plan_.changesIdentity = isRoot || spec_.uid != ::getuid() || spec_.gid != ::getgid();
        plan_.claimsAsRoot = spec_.ownerIsRoot;
        plan_.uid = spec_.uid;
        plan_.gid = spec_.gid;
        plan_.groups.assign(spec_.groups.begin(), spec_.groups.end());
        for (const StageRow& row : kStages) {
            const bool isIdentity = row.stage >= LaunchStage::GROUPS && row.stage <= LaunchStage::UID;
            const bool isHeld = row.attribute == nullptr || MustHold(row.attribute) ||
                                (row.stage == LaunchStage::REAL_TIME && MustHold("set_rt_prio"));
            plan_.isFatal[static_cast<size_t>(row.stage)] = isHeld || (isIdentity && (isRoot || !spec_.ownerIsRoot));
        }
        plan_.parentDeathSignal = spec_.parentDeathSignal;
        plan_.parent = ::getpid();
        return true;
    }

    bool PrepareCommand() {
        plan_.executable = spec_.executable.c_str();
        plan_.argv = Pointers(spec_.argv);
        plan_.environment = Pointers(spec_.environment);
        PreparePidVariable();
        return true;
    }

    /// Only the child knows the value.
    void PreparePidVariable() {
        if (spec_.pidVariable.empty()) {
            return;
        }
        pidText_ = spec_.pidVariable + "=";
        const size_t valueAt = pidText_.size();
        pidText_.append(kPidDigits, '\0');
        plan_.pidDigits = pidText_.data() + valueAt;
        plan_.environment.insert(plan_.environment.end() - 1, pidText_.data());
    }

    /// A null-terminated array as exec wants it; exec does not write to the texts.
    static std::vector<char*> Pointers(const std::vector<std::string>& texts) {
        std::vector<char*> pointers;
        pointers.reserve(texts.size() + 1);
        for (const std::string& text : texts) {
            pointers.push_back(const_cast<char*>(text.c_str()));
        }
        pointers.push_back(nullptr);
        return pointers;
    }

    bool Fork() {
        const pid_t pid = MakeChild(plan_);
        if (pid < 0) {
            return Fail(LaunchStage::FORK, errno);
        }
        result_.process.pid = pid;
        result_.pidfd.Reset(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
        const int error = errno;
        const auto stat = ReadProcessStat(pid);
        result_.process.startTime = stat ? stat->id.startTime : 0;
        // Nobody but us reaps this child, so it is there even if it has ended already.
        return (result_.pidfd.IsOpen() && stat) || Fail(LaunchStage::FORK, result_.pidfd.IsOpen() ? EIO : error);
    }

    void CloseChildEnds() {
        report_.writeEnd.Reset();
        null_.Reset();
        output_.Reset();
    }

    /// The read end is still open here too, so that a child that has died raises no SIGPIPE.
    void LetGo() {
        const char byte = 1;
        while (::write(go_.writeEnd.Get(), &byte, 1) < 0 && errno == EINTR) {
        }
    }

    void AwaitExec() {
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + std::chrono::milliseconds(spec_.execWaitMs);
        while (result_.Ok()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            pollfd waiting{report_.readEnd.Get(), POLLIN, 0};
            const int ready = ::poll(&waiting, 1, static_cast<int>(std::max<int64_t>(left, 0)));
            if (ready == 0) {
                isStuck_ = true;
                Fail(LaunchStage::EXEC, ETIMEDOUT);
            }
            if (ready > 0 && !TakeReport()) {
                return;
            }
        }
    }

    /// False at the end of the stream, which is the exec.
    bool TakeReport() {
        ChildReport report;
        const ssize_t length = ::read(report_.readEnd.Get(), &report, sizeof report);
        if (length != static_cast<ssize_t>(sizeof report)) {
            return length < 0 && errno == EINTR;
        }
        if (report.isFatal != 0) {
            return Fail(report.stage, report.error);
        }
        Warn(RowOf(report.stage)->attribute, report.error);
        return true;
    }

    /// Without its word the child ends by itself; one that is stuck is not waited for.
    void Abandon() {
        go_.writeEnd.Reset();
        const pid_t pid = std::exchange(result_.process, ProcessId{}).pid;
        if (pid > 0) {
            ::kill(pid, SIGKILL);
        }
        while (pid > 0 && !isStuck_ && ::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        result_.pidfd.Reset();
        report_.readEnd.Reset();
    }

    const LaunchSpec spec_;
    LaunchResult result_;
    ChildPlan plan_;
    std::string pidText_;
    ResourceGroupPlan group_;
    UniqueFd null_;
    UniqueFd output_;
    Pipe go_;
    Pipe report_;
    bool isStuck_ = false;
};

}  // namespace

const char* LaunchStageName(LaunchStage stage) {
    const StageRow* const row = RowOf(stage);
    return row == nullptr ? "unknown" : row->name;
}

LaunchResult Launch(const LaunchSpec& spec, const BeforeExec& beforeExec) {
    // Never destroyed, since nobody can tell when the child has gone.
    static auto& stuck = *new std::vector<std::unique_ptr<Start>>;
    const int dumpable = ::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0);
    auto start = std::make_unique<Start>(spec);
    LaunchResult result = start->Run(beforeExec);
    if (start->IsStuck()) {
        GiveUpLastChild();
        stuck.push_back(std::move(start));
    }
    // A child that takes on another identity closes the daemon's memory, in which it is, to everybody.
    if (stuck.empty() && dumpable == 1) {
        static_cast<void>(::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0));
    }
    return result;
}

}  // namespace ProcMgr
