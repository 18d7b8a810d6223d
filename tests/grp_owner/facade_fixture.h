/// The facade as a group-owner process uses it.
#ifndef PROCMGR_TESTS_GRP_OWNER_FACADE_FIXTURE_H
#define PROCMGR_TESTS_GRP_OWNER_FACADE_FIXTURE_H

#include <vector>

#include "include/procmgr_grp_owner.h"
#include "tests/fake_platform/fake_vek.h"
#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

class FacadeTest : public GroupTest {
protected:
    static GrpOwnerCfg Config() {
        GrpOwnerCfg cfg;
        cfg.startupEntryPath = "/group/manifests";
        cfg.resFileName = "res";
        return cfg;
    }

    static Strings FacadeLines() { return LinesOf("procmgr_grp_owner_impl.cpp"); }

    /// Enables a group of these manifests and forgets what was logged and sent meanwhile.
    void Enable(const std::vector<ApplicationManifest>& manifests, const GrpOwnerCfg& cfg = Config()) {
        FakeManifests::Get().SetManifests(manifests);
        ASSERT_EQ(owner_.GrpOwnerConfig(cfg), 0);
        ASSERT_EQ(owner_.GrpOwnerEnable(), 0);
        processManager_.ClearRequests();
        listener_.Clear();
        Forget();
    }

    ProcMgrGrpOwner& owner_ = ProcMgrGrpOwner::GetInstance();
};

}  // namespace ProcMgr

#endif
