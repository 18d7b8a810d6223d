// Boots the group of the platform beside it, stops one application, restarts another, and ends.
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "include/procmgr_grp_owner.h"

using ProcMgr::AppReportState;
using ProcMgr::ProcMgrGrpOwner;

namespace {

// The platform's thread may call until the process is gone: never destroyed.
struct Heard {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::string> running;
};

Heard& TheHeard() {
    static Heard& heard = *new Heard;
    return heard;
}

bool OnAppState(const std::string& name, int /*pid*/, AppReportState state) {
    Heard& heard = TheHeard();
    {
        const std::lock_guard<std::mutex> lock(heard.mutex);
        if (state == AppReportState::SWITCH_ON) {
            heard.running.insert(name);
        }
    }
    heard.changed.notify_all();
    return true;
}

void WaitUntilHeardOf(const std::set<std::string>& names) {
    Heard& heard = TheHeard();
    std::unique_lock<std::mutex> lock(heard.mutex);
    heard.changed.wait(lock, [&heard, &names] { return heard.running == names; });
}

void Say(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

}  // namespace

int main() {
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    ProcMgr::GrpOwnerCfg cfg;
    cfg.startupEntryPath = "built in";
    owner.GrpOwnerConfig(cfg);
    owner.SubscribeAppState(OnAppState);
    if (owner.GrpOwnerEnable() != 0 || !owner.StartAutoStartApp()) {
        Say("not up");
        return 1;
    }
    WaitUntilHeardOf({"power", "nav"});
    Say("up");
    std::map<std::string, bool> result;
    if (owner.ChangeAppState({"nav"}, {}, {"power"}, result) != 0) {
        Say("not changed");
        return 1;
    }
    Say("changed");
    return owner.GrpOwnerDisable();
}
