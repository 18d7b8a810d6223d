#include "ss_server/request_gate.h"

#include <gtest/gtest.h>

#include "include/ss_to_owner_server.h"
#include "ss_server/ss_to_owner_server_impl.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/ss_server/ss_requests.h"

using ProcMgr::RequestGate;
using ProcMgr::SsToOwnerServerImpl;

TEST(RequestGate, LetsAThreadInSeveralTimes) {
    RequestGate gate;
    const RequestGate::Visit outer(gate);
    const RequestGate::Visit inner(gate);
    EXPECT_TRUE(outer.IsInside());
    EXPECT_TRUE(inner.IsInside());
}

TEST(RequestGate, LetsNobodyInOnceItIsClosed) {
    RequestGate gate;
    gate.Close();
    EXPECT_FALSE(RequestGate::Visit(gate).IsInside());
    gate.Close();
}

TEST(RequestGate, ClosedFromInsideDoesNotWaitForItsCaller) {
    RequestGate gate;
    const RequestGate::Visit visit(gate);
    gate.Close();
    EXPECT_FALSE(RequestGate::Visit(gate).IsInside());
}

TEST(StopServing, RefusesEveryLaterRequestWithoutCallingAHandler) {
    ASSERT_EQ(SsToOwnerServer::GetInstance().RegDumpCallBackImpl(
                  [] {
                      ADD_FAILURE();
                      return true;
                  },
                  "res"),
              0);
    SsToOwnerServerImpl::StopServing();
    FakeLog::Get().Clear();
    IoctlBuffer buffer("");
    EXPECT_EQ(buffer.Send(4), SsToOwnerServerImpl::kBadArgument);
    EXPECT_TRUE(FakeLog::Get().Lines().empty());
}
