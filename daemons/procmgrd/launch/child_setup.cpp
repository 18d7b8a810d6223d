#include "daemons/procmgrd/launch/child_setup.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace ProcMgr {
namespace {

constexpr int kFirstFdAboveStdio = 3;
constexpr int kExitWithoutExec = 127;

int ErrnoOf(long result) {
    return result < 0 ? errno : 0;
}

/// The daemon's handlers, ignored signals and mask are not the application's.
void ResetSignals() {
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        ::sigaction(number, &byDefault, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

int BecomeSessionLeader(const ChildPlan&) {
    return ErrnoOf(::setsid());
}

int CloseRange(int first, int last) {
    return first <= last ? ErrnoOf(::syscall(SYS_close_range, first, last, 0)) : 0;
}

/// Everything but the report pipe, which the exec closes.
int CloseDescriptors(const ChildPlan& plan) {
    if (plan.highestFd < 0) {
        const int error = CloseRange(kFirstFdAboveStdio, plan.reportFd - 1);
        return error != 0 ? error : CloseRange(plan.reportFd + 1, INT_MAX);
    }
    for (int fd = kFirstFdAboveStdio; fd <= plan.highestFd; ++fd) {
        if (fd != plan.reportFd) {
            ::close(fd);
        }
    }
    return 0;
}

int SetUpStdio(const ChildPlan& plan) {
    const bool done = ::dup2(plan.nullFd, STDIN_FILENO) >= 0 && ::dup2(plan.outputFd, STDOUT_FILENO) >= 0 &&
                      ::dup2(plan.outputFd, STDERR_FILENO) >= 0;
    return done ? CloseDescriptors(plan) : errno;
}

int JoinGroup(const char* procsFile) {
    const int file = ::open(procsFile, O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        return errno;
    }
    const int error = ErrnoOf(::write(file, "0", 1));
    ::close(file);
    return error;
}

int JoinResourceGroup(const ChildPlan& plan) {
    int first = 0;
    for (char* const* file = plan.groupFiles.data(); *file != nullptr; ++file) {
        const int error = JoinGroup(*file);
        first = first == 0 ? error : first;
    }
    return first;
}

/// The kernel drops cores that it does not have without a word; asked for and not got is a failure.
int SetAffinity(const ChildPlan& plan) {
    if (!plan.hasCores) {
        return 0;
    }
    cpu_set_t got;
    CPU_ZERO(&got);
    if (::sched_setaffinity(0, sizeof plan.cores, &plan.cores) != 0 || ::sched_getaffinity(0, sizeof got, &got) != 0) {
        return errno;
    }
    return CPU_EQUAL(&got, &plan.cores) ? 0 : EINVAL;
}

int SetScheduling(const ChildPlan& plan) {
    if (plan.schedulingClass == kNoSchedulingClass) {
        return 0;
    }
    sched_param param{};
    param.sched_priority = plan.schedulingPriority;
    return ErrnoOf(::sched_setscheduler(0, plan.schedulingClass, &param));
}

// The C library's own calls would lock and signal other threads.
int SetGroups(const ChildPlan& plan) {
    return plan.changesIdentity ? ErrnoOf(::syscall(SYS_setgroups, plan.groups.size(), plan.groups.data())) : 0;
}

int SetGid(const ChildPlan& plan) {
    return plan.changesIdentity ? ErrnoOf(::syscall(SYS_setresgid, plan.gid, plan.gid, plan.gid)) : 0;
}

int SetUid(const ChildPlan& plan) {
    return plan.changesIdentity ? ErrnoOf(::syscall(SYS_setresuid, plan.uid, plan.uid, plan.uid)) : 0;
}

/// A daemon that is not root may have been given capabilities, which outlive a change between users that are not root;
/// they are the daemon's alone. Kernels without ambient capabilities have nothing to clear.
int DropCapabilities(const ChildPlan&) {
    if (::geteuid() == 0) {
        return 0;
    }
    static_cast<void>(::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0));
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    return ErrnoOf(::syscall(SYS_capset, &header, none));
}

/// After the change of identity, which clears it. A parent that is gone by now will send nothing.
int SetParentDeathSignal(const ChildPlan& plan) {
    if (plan.parentDeathSignal == 0) {
        return 0;
    }
    const int error = ErrnoOf(::prctl(PR_SET_PDEATHSIG, plan.parentDeathSignal));
    return error == 0 && ::getppid() != plan.parent ? ESRCH : error;
}

/// No function of the C library that writes numbers may be called here.
void WritePid(char* digits) {
    if (digits == nullptr) {
        return;
    }
    char reversed[kPidDigits];
    size_t count = 0;
    for (auto rest = static_cast<unsigned int>(::getpid()); rest != 0 && count < kPidDigits; rest /= 10) {
        reversed[count++] = static_cast<char>('0' + rest % 10);
    }
    while (count > 0) {
        *digits++ = reversed[--count];
    }
    *digits = '\0';
}

int Execute(const ChildPlan& plan) {
    WritePid(plan.pidDigits);
    ::execve(plan.executable, plan.argv.data(), plan.environment.data());
    return errno;
}

struct Step {
    LaunchStage stage;
    int (*apply)(const ChildPlan&);
};

constexpr Step kFirst[] = {{LaunchStage::SESSION, BecomeSessionLeader}, {LaunchStage::STDIO, SetUpStdio}};
constexpr Step kResources[] = {{LaunchStage::RESOURCE_GROUP, JoinResourceGroup},
                               {LaunchStage::AFFINITY, SetAffinity},
                               {LaunchStage::REAL_TIME, SetScheduling}};
constexpr Step kIdentity[] = {{LaunchStage::GROUPS, SetGroups},
                              {LaunchStage::GID, SetGid},
                              {LaunchStage::UID, SetUid},
                              {LaunchStage::UID, DropCapabilities}};
constexpr Step kLast[] = {{LaunchStage::PARENT_DEATH, SetParentDeathSignal}, {LaunchStage::EXEC, Execute}};

template <size_t count>
void Apply(const ChildPlan& plan, const Step (&steps)[count]) {
    for (const Step& step : steps) {
        const int error = step.apply(plan);
        if (error == 0) {
            continue;
        }
        const bool isFatal = plan.isFatal[static_cast<size_t>(step.stage)];
        const ChildReport report{isFatal ? 1U : 0U, step.stage, error};
        const ssize_t written = ::write(plan.reportFd, &report, sizeof report);
        if (isFatal || written < 0) {
            ::_exit(kExitWithoutExec);
        }
    }
}

void SayHello(const ChildPlan& plan) {
    const ChildHello hello{plan.hello.serial, ::getpid()};
    if (::write(plan.helloFd, &hello, sizeof hello) != static_cast<ssize_t>(sizeof hello)) {
        ::_exit(kExitWithoutExec);
    }
}

/// Nothing of the application happens before the daemon has written down that this process exists.
void AwaitGo(const ChildPlan& plan) {
    ::close(plan.goWriteFd);
    char byte = 0;
    ssize_t length = 0;
    do {
        length = ::read(plan.goFd, &byte, 1);
    } while (length < 0 && errno == EINTR);
    if (length != 1) {
        ::_exit(kExitWithoutExec);
    }
}

}  // namespace

int HighestFdWithoutCloseRange() {
    if (::syscall(SYS_close_range, INT_MAX, INT_MAX, 0) == 0) {
        return -1;
    }
    int highest = kFirstFdAboveStdio;
    DIR* const dir = ::opendir("/proc/self/fd");
    for (const dirent* entry = dir != nullptr ? ::readdir(dir) : nullptr; entry != nullptr; entry = ::readdir(dir)) {
        highest = std::max(highest, std::atoi(entry->d_name));
    }
    if (dir != nullptr) {
        ::closedir(dir);
    }
    return highest;
}

void RunChild(const ChildPlan& plan) {
    ResetSignals();
    SayHello(plan);
    AwaitGo(plan);
    Apply(plan, kFirst);
    if (plan.claimsAsRoot) {
        Apply(plan, kResources);
        Apply(plan, kIdentity);
    } else {
        Apply(plan, kIdentity);
        Apply(plan, kResources);
    }
    Apply(plan, kLast);
    ::_exit(kExitWithoutExec);
}

}  // namespace ProcMgr
