#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(OwnerHeart, IsSentToTheProcessManagerUnderTheNameOfTheProcess) {
    setenv("PROC_NAME", "owner", 1);
    Agent().StartOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("send owner to PROCMGR"));
    EXPECT_THAT(LogLines(), ElementsAre("INFO ProcMgrAgent: register heart beat from owner to PROCMGR."));
}

TEST(OwnerHeart, IsStartedByTheFirstCallOnly) {
    setenv("PROC_NAME", "owner", 1);
    Agent().StartOwnerHeart();
    Agent().StartOwnerHeart();
    Agent().StopOwnerHeart();
    Agent().StartOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("send owner to PROCMGR", "stop sending"));
}

TEST(OwnerHeart, IsNotStartedWithoutAProcessNameNorLater) {
    unsetenv("PROC_NAME");
    Agent().StartOwnerHeart();
    setenv("PROC_NAME", "owner", 1);
    Agent().StartOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Calls(), IsEmpty());
    EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent : cur proName is null."));
}

TEST(OwnerHeart, ThatCannotBeRegisteredIsLoggedWithTheResultAndNeverStopped) {
    setenv("PROC_NAME", "owner", 1);
    FakeHeartBeat::Get().SetResult(FakeHeartBeat::Operation::REGISTER_SEND, 5);
    Agent().StartOwnerHeart();
    Agent().StopOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("send owner to PROCMGR"));
    EXPECT_THAT(LogLines(),
                ElementsAre("ERROR ProcMgrAgent: register heart beat from owner to PROCMGR failed. (ret=5)"));
}

TEST(OwnerHeart, IsSentUnderTheFirst128BytesOfALongName) {
    setenv("PROC_NAME", std::string(200, 'n').c_str(), 1);
    Agent().StartOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("send " + std::string(128, 'n') + " to PROCMGR"));
}

TEST(OwnerHeart, IsStoppedOnceAndSilently) {
    setenv("PROC_NAME", "owner", 1);
    Agent().StartOwnerHeart();
    FakeLog::Get().Clear();
    Agent().StopOwnerHeart();
    Agent().StopOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("send owner to PROCMGR", "stop sending"));
    EXPECT_EQ(FakeHeartBeat::Get().SenderCount(), 0U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST(OwnerHeart, ThatWasNeverStartedNeedsNoStop) {
    Agent().StopOwnerHeart();
    EXPECT_THAT(FakeHeartBeat::Get().Calls(), IsEmpty());
}

}  // namespace
}  // namespace ProcMgr
