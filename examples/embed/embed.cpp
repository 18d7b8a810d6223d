// A group owner in one file: takes charge of the group that the manifests describe, looks at one of its applications,
// restarts it, and ends; the applications stay with the process manager.
//
//     PROC_NAME=my_owner embed MANIFESTS APPLICATION
#include <cstdio>
#include <exception>
#include <iterator>
#include <map>
#include <string>

#include "include/procmgr_grp_owner.h"

using ProcMgr::AppReportState;
using ProcMgr::ProcMgrGrpOwner;

namespace {

void Say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    static_cast<void>(std::fflush(stdout));
}

void Complain(const std::string& line) {
    static_cast<void>(std::fprintf(stderr, "embed: %s\n", line.c_str()));
}

std::string NameOf(AppReportState state) {
    static constexpr const char* kNames[] = {"runs",
                                             "has ended, or is being restarted",
                                             "has lost its heartbeat",
                                             "has its heartbeat again",
                                             "has failed",
                                             "is to be terminated"};
    const auto index = static_cast<size_t>(state);
    return index < std::size(kNames) ? kNames[index] : "is in an unknown state";
}

// Runs on threads of the platform, until the process is gone: it returns soon, throws nothing, and uses no object that
// the end of the process destroys.
bool OnAppState(const std::string& name, int pid, AppReportState state) {
    Say("heard: " + name + " " + NameOf(state) + " (pid " + std::to_string(pid) + ")");
    return true;
}

// The answer goes to the system-state manager. Only a group with an SS service is ever asked.
bool OnSystemState(int state, int timeoutMs) {
    Say("heard: system state " + std::to_string(state) + ", within " + std::to_string(timeoutMs) + " ms");
    return true;
}

bool TakeCharge(const std::string& manifests) {
    ProcMgr::GrpOwnerCfg cfg;
    cfg.startupEntryPath = manifests;  // absolute: the process manager reads it, too
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    owner.GrpOwnerConfig(cfg);
    owner.SubscribeAppState(OnAppState);
    owner.SubscribeSystemState(OnSystemState);
    if (owner.GrpOwnerEnable() != 0) {
        Complain("cannot take charge of the group; the log says why");
        return false;
    }
    const bool allUp = owner.StartAutoStartApp();
    owner.ReportSelfStateToPm(true);
    Say(allUp ? "every auto-boot application runs" : "not every auto-boot application runs");
    return allUp;
}

bool LookAt(const std::string& application) {
    ProcMgr::ApplicationInfo info;
    if (ProcMgrGrpOwner::GetInstance().QueryAppInfo(application, info) != 0) {
        Complain(application + " is not in this group");
        return false;
    }
    Say(application + ": node type " + std::to_string(info.nodeType) + ", device " + std::to_string(info.cfgDeviceId));
    return true;
}

// A restart that waits for its outcome. GrpOwnerRestartApp asks for one by the restart policy and does not wait.
bool Restart(const std::string& application) {
    std::map<std::string, bool> result;
    if (ProcMgrGrpOwner::GetInstance().ChangeAppState({}, {}, {application}, result) == 0) {
        Say(application + " is restarted");
        return true;
    }
    const std::string reason = result.empty() ? "another change is running" : "it did not come up";
    Complain(application + " is not restarted: " + reason);
    return false;
}

void LetGo() {
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    owner.ReportSelfStateToPm(false);
    owner.GrpOwnerDisable();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        Complain("usage: embed MANIFESTS APPLICATION");
        return 2;
    }
    try {
        if (!TakeCharge(argv[1])) {
            return 1;
        }
        const bool ok = LookAt(argv[2]) && Restart(argv[2]);
        LetGo();
        return ok ? 0 : 1;
    } catch (const std::exception& error) {
        Complain(error.what());
        return 1;
    }
}
