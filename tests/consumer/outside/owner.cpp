// A group owner that takes charge of the group of argv[1], says what came of it, keeps it until its input ends, and
// stops it.
#include <cstdio>
#include <map>
#include <string>

#include "include/procmgr_grp_owner.h"
#include "include/ss_to_owner_server.h"
#include "platform/include/owner_link.h"

using ProcMgr::AppReportState;
using ProcMgr::ProcMgrGrpOwner;

namespace {

void Say(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

void OnAppReport(const char* name, size_t nameLen, int pid, uint32_t state) {
    ProcMgrGrpOwner::GetInstance().ReportAppStateFromApp(
        std::string(name, nameLen), pid, state == 0 ? AppReportState::SWITCH_ON : AppReportState::SWITCH_OFF);
}

bool TakeCharge(const char* manifests) {
    ProcMgr::GrpOwnerCfg cfg;
    cfg.startupEntryPath = manifests;
    cfg.resFileName = "outside";
    cfg.ssServerEnable = true;
    OwnerSetAppReportHandler(OnAppReport);
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    owner.GrpOwnerConfig(cfg);
    return owner.GrpOwnerEnable() == 0 && owner.StartAutoStartApp() && owner.ReportSelfStateToPm(true);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !TakeCharge(argv[1])) {
        Say("not up");
        return 1;
    }
    if (SsToOwnerServer::GetInstance().ReportSysEvent({1}) != 0) {
        Say("an event without readers was lost");
        return 1;
    }
    Say("up");
    while (std::getchar() != EOF) {
    }
    std::map<std::string, bool> result;
    const int error = ProcMgrGrpOwner::GetInstance().ChangeAppState({"worker", "clock"}, {}, {}, result);
    Say(error == 0 && result["worker"] && result["clock"] ? "stopped" : "not stopped");
    ProcMgrGrpOwner::GetInstance().ReportSelfStateToPm(false);
    ProcMgrGrpOwner::GetInstance().GrpOwnerDisable();
    return error;
}
