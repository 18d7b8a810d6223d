// What an integrator does: the public headers and one of the two libraries, nothing else. SUITE names which one.
#include <gtest/gtest.h>

#include "include/procmgr_grp_owner.h"
#include "include/ss_to_owner_server.h"

using ProcMgr::ProcMgrGrpOwner;

TEST(SUITE, ReachesTheOnlyFacadeThroughTheLibrary) {
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    EXPECT_EQ(&owner, &ProcMgrGrpOwner::GetInstance());
    ProcMgr::GrpOwnerCfg cfg;
    cfg.eventReportEnable = true;
    EXPECT_EQ(owner.GrpOwnerConfig(cfg), 0);
    EXPECT_EQ(owner.ReportEventFromApp(nullptr, 0), 0);
    EXPECT_FALSE(owner.CheckAppExisted("ghost"));
    EXPECT_FALSE(owner.ReportSelfStateToPm(true)) << "there is no pipe yet";
}

TEST(SUITE, ReportsEventsToNobodyAsLongAsNobodyListens) {
    EXPECT_EQ(SsToOwnerServer::GetInstance().ReportSysEvent({1}), 0);
}
