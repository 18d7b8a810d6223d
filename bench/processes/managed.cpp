#include "bench/processes/managed.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>

#include "bench/processes/stamp_pipe.h"
#include "include/procmgr_grp_owner.h"
#include "platform/include/owner_link.h"

namespace Bench {
namespace {

using ProcMgr::AppReportState;
using ProcMgr::ProcMgrGrpOwner;

/// The processes that are known to run, as the owner hears of them on the threads of the platform.
class KnownProcesses {
public:
    void Add(pid_t pid) {
        const std::lock_guard<std::mutex> lock(mutex_);
        pids_.insert(pid);
        added_.notify_one();
    }

    bool Await(pid_t pid) {
        std::unique_lock<std::mutex> lock(mutex_);
        return added_.wait_for(lock, kPatience, [this, pid] { return pids_.count(pid) != 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable added_;
    std::set<pid_t> pids_;
};

// The platform's threads may add to it until the process is gone: it is never destroyed.
KnownProcesses& Known() {
    static KnownProcesses& known = *new KnownProcesses;
    return known;
}

bool OnAppState(const std::string& /*name*/, int pid, AppReportState state) {
    if (state == AppReportState::SWITCH_ON) {
        Known().Add(pid);
    }
    return true;
}

void OnAppReport(const char* name, size_t nameLen, int pid, uint32_t state) {
    const AppReportState said = state == 0 ? AppReportState::SWITCH_ON : AppReportState::SWITCH_OFF;
    ProcMgrGrpOwner::GetInstance().ReportAppStateFromApp(std::string(name, nameLen), pid, said);
    Known().Add(pid);
}

void SetVariable(const char* name, const std::string& value) {
    if (setenv(name, value.c_str(), 1) != 0) {
        throw std::system_error(errno, std::generic_category(), name);
    }
}

/// A change has 4.5 s. On a machine on which that is too little, the next one goes on where it ended.
void Change(const std::vector<std::string>& term, const std::vector<std::string>& start) {
    constexpr int kAttempts = 12;
    std::map<std::string, bool> result;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (ProcMgrGrpOwner::GetInstance().ChangeAppState(term, start, {}, result) == 0) {
            return;
        }
    }
    throw std::runtime_error("the owner cannot start or end every application; its log says why");
}

/// The command line of procmgrd as its service has it.
[[noreturn]] void BecomeProcmgrd(const std::string& program, const std::string& logs, int readyFd) {
    const std::string ready = std::to_string(readyFd);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    execl(program.c_str(), program.c_str(), "--log-dir", logs.c_str(), "--ready-fd", ready.c_str(), nullptr);
    _exit(127);
}

}  // namespace

Managed::Managed(const Group& group, const std::string& procmgrd, const std::string& folder)
    : group_(group), names_(NamesOf(group)) {
    const std::string manifests = folder + "/group.yaml";
    std::ofstream(manifests) << ManifestsOf(group);
    SetVariable("PROCMGR_RUN_DIR", folder + "/run");
    StartProcmgrd(procmgrd, folder);
    SetVariable("PROC_NAME", "bench");
    SetVariable("PROCMGR_LOG_FILE", folder + "/owner.log");
    TakeCharge(manifests);
}

Managed::~Managed() {
    if (procmgrd_ > 0) {
        kill(procmgrd_, SIGTERM);
        waitpid(procmgrd_, nullptr, 0);
    }
}

void Managed::StartProcmgrd(const std::string& procmgrd, const std::string& folder) {
    const std::string logs = folder + "/log";
    SetVariable("PROCMGR_LOG_FILE", folder + "/procmgrd.log");
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    procmgrd_ = fork();
    if (procmgrd_ == 0) {
        BecomeProcmgrd(procmgrd, logs, ends[1]);
    }
    close(ends[1]);
    const ProcMgr::UniqueFd ready(ends[0]);
    AwaitReadable(ready.Get(), "procmgrd to be ready");
    char byte = 0;
    if (read(ready.Get(), &byte, 1) != 1) {
        throw std::runtime_error("procmgrd does not start; its log is " + folder + "/procmgrd.log");
    }
}

void Managed::TakeCharge(const std::string& manifests) const {
    ProcMgr::GrpOwnerCfg cfg;
    cfg.startupEntryPath = manifests;
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    OwnerSetAppReportHandler(OnAppReport);
    owner.GrpOwnerConfig(cfg);
    if (!group_.isReporting) {
        owner.SubscribeAppState(OnAppState);
    }
    if (owner.GrpOwnerEnable() != 0) {
        throw std::runtime_error("cannot take charge of the group");
    }
}

void Managed::Start() {
    Change({}, names_);
}

void Managed::Stop() {
    Change(names_, {});
}

void Managed::AwaitKnown(pid_t pid) {
    if (!Known().Await(pid)) {
        throw std::runtime_error("the owner did not hear of the process that replaced another one");
    }
}

}  // namespace Bench
