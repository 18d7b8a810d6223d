// A program that is linked with the library calls the facade through the places of its virtual functions. They stay
// where they are: what is new goes behind the last one.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "include/procmgr_grp_owner.h"
#include "include/ss_to_owner_server.h"

namespace {

/// The place of a virtual function in its class's table, as the C++ ABI of the supported processors writes it into a
/// pointer to the function: an offset in bytes, with a mark of one in it or in the word behind it.
template <typename Function>
size_t SlotOf(Function function) {
    ptrdiff_t words[2] = {};
    static_assert(sizeof(function) == sizeof(words));
    memcpy(words, &function, sizeof(words));
    return static_cast<size_t>(words[0]) / sizeof(void*);
}

using ProcMgr::ProcMgrGrpOwner;

}  // namespace

// The two destructors of the ABI come first.
TEST(FacadeSlots, OfTheGroupOwnerStayWhereTheyAre) {
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::GrpOwnerConfig), 2U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::GrpOwnerEnable), 3U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::GrpOwnerDisable), 4U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::StartAutoStartApp), 5U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::CheckAppExisted), 6U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::QueryAppInfo), 7U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::ReportAppStateFromApp), 8U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::ReportEventFromApp), 9U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::SubscribeSystemState), 10U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::SubscribeAppState), 11U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::ReportSelfStateToPm), 12U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::ChangeAppState), 13U);
    EXPECT_EQ(SlotOf(&ProcMgrGrpOwner::GrpOwnerRestartApp), 14U);
}

TEST(FacadeSlots, OfTheSystemStateServiceStayWhereTheyAre) {
    EXPECT_EQ(SlotOf(&SsToOwnerServer::EnableSyslog), 2U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::InitSysEventServer), 3U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::ReportSysEvent), 4U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegSsChangeAppCallBackImpl), 5U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegSsChangeAppTimeoutCallBackImpl), 6U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegReloadCallBackImpl), 7U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegDumpCallBackImpl), 8U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegQueryAppListCallBackImpl), 9U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegStopAllAppCallBackImpl), 10U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegSetSystemStateCallBackImpl), 11U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegSetSystemStateTimeoutCallBackImpl), 12U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegSsVerifyAppCallBackImpl), 13U);
    EXPECT_EQ(SlotOf(&SsToOwnerServer::RegSsQueryAppStateCallBackImpl), 14U);
}
