// A group owner in one file: takes charge of the group that the manifests describe, looks at one of its applications,
// restarts it, and ends; the applications stay with the process manager.
//
//     PROC_NAME=my_owner embed MANIFESTS APPLICATION
#include <cstdio>
#include <exception>
#include <map>
#include <string>

#include "include/procmgr_grp_owner.h"

using ProcMgr::AppReportState;
using ProcMgr::ProcMgrGrpOwner;

namespace {

const char* NameOf(AppReportState state) {
    switch (state) {
        case AppReportState::SWITCH_ON:
            return "runs";
        case AppReportState::SWITCH_OFF:
            return "has ended, or is being restarted";
        case AppReportState::HEART_BEAT_LOST:
            return "has lost its heartbeat";
        case AppReportState::HEART_BEAT_RECOVERY:
            return "has its heartbeat again";
        case AppReportState::ABNORMAL_EXIT:
            return "has failed";
        case AppReportState::ACTIVELY_EXIT:
            return "is to be terminated";
    }
    return "is in a state without a name";
}

// Runs on threads of the platform, until the process is gone: it returns soon, throws nothing, and uses no object that
// the end of the process destroys.
bool OnAppState(const std::string& name, int pid, AppReportState state) {
    std::printf("heard: %s %s (pid %d)\n", name.c_str(), NameOf(state), pid);
    std::fflush(stdout);
    return true;
}

// The answer goes to the system-state manager. Only a group with an SS service is ever asked.
bool OnSystemState(int state, int timeoutMs) {
    std::printf("heard: system state %d, within %d ms\n", state, timeoutMs);
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
        std::fprintf(stderr, "embed: cannot take charge of the group; the log says why\n");
        return false;
    }
    const bool allUp = owner.StartAutoStartApp();
    owner.ReportSelfStateToPm(true);
    std::printf(allUp ? "every auto-boot application runs\n" : "not every auto-boot application runs\n");
    return allUp;
}

bool LookAt(const std::string& application) {
    ProcMgr::ApplicationInfo info;
    if (ProcMgrGrpOwner::GetInstance().QueryAppInfo(application, info) != 0) {
        std::fprintf(stderr, "embed: %s is not in this group\n", application.c_str());
        return false;
    }
    std::printf("%s: node type %u, device %u\n", application.c_str(), info.nodeType, info.cfgDeviceId);
    return true;
}

// A restart that waits for its outcome. GrpOwnerRestartApp asks for one by the restart policy and does not wait.
bool Restart(const std::string& application) {
    std::map<std::string, bool> result;
    if (ProcMgrGrpOwner::GetInstance().ChangeAppState({}, {}, {application}, result) == 0) {
        std::printf("%s is restarted\n", application.c_str());
        return true;
    }
    const char* reason = result.empty() ? "another change is running" : "it did not come up";
    std::fprintf(stderr, "embed: %s is not restarted: %s\n", application.c_str(), reason);
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
        std::fprintf(stderr, "usage: embed MANIFESTS APPLICATION\n");
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
        std::fprintf(stderr, "embed: %s\n", error.what());
        return 1;
    }
}
