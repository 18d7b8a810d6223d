// A group owner that takes charge of the group of argv[1], says what came of it, keeps it until its input ends, and
// stops it.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

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

// A machine that is busy may need more than the time that one change has.
bool Change(const std::vector<std::string>& term, const std::vector<std::string>& start) {
    std::map<std::string, bool> result;
    for (int attempt = 0; attempt < 10; ++attempt) {
        if (ProcMgrGrpOwner::GetInstance().ChangeAppState(term, start, {}, result) == 0) {
            return true;
        }
    }
    return false;
}

bool TakeCharge(const char* manifests) {
    ProcMgr::GrpOwnerCfg cfg;
    cfg.startupEntryPath = manifests;
    cfg.resFileName = "outside";
    cfg.ssServerEnable = true;
    OwnerSetAppReportHandler(OnAppReport);
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    owner.GrpOwnerConfig(cfg);
    return owner.GrpOwnerEnable() == 0 && (owner.StartAutoStartApp() || Change({}, {"clock", "worker"})) &&
           owner.ReportSelfStateToPm(true);
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
    Say(Change({"worker", "clock"}, {}) ? "stopped" : "not stopped");
    ProcMgrGrpOwner::GetInstance().ReportSelfStateToPm(false);
    return ProcMgrGrpOwner::GetInstance().GrpOwnerDisable();
}
