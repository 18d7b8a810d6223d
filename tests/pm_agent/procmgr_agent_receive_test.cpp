#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "pm_agent/procmgr_agent_impl.h"
#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using States = std::map<std::string, unsigned int>;

std::string Fd() {
    return std::to_string(FakePipe::Get().LastFd());
}

// What the two callbacks were given, in order.
class Received {
public:
    void Register() {
        ASSERT_TRUE(Agent().RegAppStateChangeCallBackImpl([this](const std::vector<Message::AppStateInfo>& states) {
            std::string line = "states";
            for (const Message::AppStateInfo& state : states) {
                line += " " + state.appName + "/" + std::to_string(state.pid) + "/" + std::to_string(state.value1) +
                        "/" + std::to_string(state.appState) + "/" + std::to_string(state.reason);
            }
            Add(line);
        }));
        ASSERT_TRUE(Agent().RegQueryAppStateCallBackImpl([this](const States& states) {
            std::string line = "answer";
            for (const auto& [name, state] : states) {
                line += " " + name + "=" + std::to_string(state);
            }
            Add(line);
        }));
        FakeLog::Get().Clear();
    }

    std::vector<std::string> Lines() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

private:
    void Add(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
    }

    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

TEST(RequestHandler, GivesTheWholeStateReportToTheCallBack) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverRecord(Record(4, "2#cam#17#5#0#0#lidar#18#6#4#1#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), ElementsAre("states cam/17/5/0/0 lidar/18/6/4/1"));
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "INFO <time> ProcMgrAgent revice appState msg from PM appState=RUNNING_NORMAL_START, appName=cam, pid=17",
            "INFO <time> ProcMgrAgent revice appState msg from PM appState=TERMINATED_ABNORMAL_EXIT, appName=lidar, pid=18"));
    EXPECT_THAT(FakePipe::Get().AllSent(), IsEmpty());
}

TEST(RequestHandler, CarriesAStateOutsideOfTheListAndPrintsNoNameForIt) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#77#99#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), ElementsAre("states cam/17/0/77/99"));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time> ProcMgrAgent revice appState msg from PM appState=, appName=cam, pid=17"));
}

TEST(RequestHandler, SaysThatAStateReportHasNoEntryAndCallsNobody) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverRecord(Record(4, "0#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), IsEmpty());
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: ProcMgrUnpackedAppStateRequest appStateList is null"));
}

TEST(RequestHandler, TakesARefusedStateReportForOneWithoutEntries) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverRecord(Record(4, "2000#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), IsEmpty());
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "ERROR ProcMgr : ProcMgrMaster UnpackedAppStateRequest err: big AppListSize=2000",
            "ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: ProcMgrUnpackedAppStateRequest appStateList is null"));
}

TEST(RequestHandler, LogsTheEntriesOfAReportThatNobodyWaitsForFirst) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#3#0#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "INFO <time> ProcMgrAgent revice appState msg from PM appState=TERMINATED_NORMAL_EXIT, appName=cam, pid=17",
            "ERROR Process pm request message, but callback is null. (fd=" + Fd() + ")"));
}

TEST(RequestHandler, GivesTheAnswerToAQueryToItsCallBack) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverRecord(Record(10, U32(2) + Sized("lidar") + U32(1) + Sized("cam") + U32(2)));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), ElementsAre("answer cam=2 lidar=1"));
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST(RequestHandler, SaysThatAnAnswerIsEmptyAndCallsNobody) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverRecord(Record(10, U32(0)));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), IsEmpty());
    EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent: QueryAppStateRespHandler failed: appStatusList is null"));
}

TEST(RequestHandler, SaysThatNobodyWaitsForAnAnswer) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().DeliverRecord(Record(10, U32(1) + Sized("cam") + U32(2)));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent: dealQueryAppStateRespCb_ is null"));
}

TEST(RequestHandler, RefusesARecordOf3983BytesAndSaysItsSize) {
    Received received;
    received.Register();
    const Message::RequestMsg message = Record(4, "1#cam#17#0#0#0#");
    FakePipe::Get().DeliverRequest(std::string(reinterpret_cast<const char*>(&message), 3983));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), IsEmpty());
    EXPECT_THAT(LogLines(),
                ElementsAre("ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: size=3983 bytes is illegal"));
}

TEST(RequestHandler, RefusesEveryOtherSize) {
    Received received;
    received.Register();
    for (const size_t size : {size_t{0}, size_t{1}, size_t{3985}, size_t{65536}}) {
        FakeLog::Get().Clear();
        FakePipe::Get().DeliverRequest(std::string(size, 'x'));
        ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
        EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: size=" +
                                            std::to_string(size) + " bytes is illegal"));
    }
}

TEST(RequestHandler, TestsTheSizeBeforeTheData) {
    Received received;
    received.Register();
    FakePipe::Get().DeliverNullData(4294967295U);
    FakePipe::Get().DeliverNullData(3984);
    FakePipe::Get().DeliverNullRequest();
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(
        LogLines(),
        ElementsAre("ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: size=4294967295 bytes is illegal",
                    "ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: request is null point",
                    "ERROR ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: req is null point. (fd=" + Fd() + ")"));
}

TEST(RequestHandler, IgnoresEveryOtherType) {
    Received received;
    received.Register();
    for (const uint32_t type : {0U, 1U, 2U, 3U, 5U, 6U, 7U, 8U, 9U, 11U, 4294967295U}) {
        FakePipe::Get().DeliverRecord(Record(type, "1#cam#17#0#0#0#"));
    }
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(received.Lines(), IsEmpty());
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST(RequestHandler, KeepsDeliveringAfterACallBackThatThrew) {
    int calls = 0;
    ASSERT_TRUE(Agent().RegAppStateChangeCallBackImpl([&calls](const std::vector<Message::AppStateInfo>& /*states*/) {
        ++calls;
        throw std::runtime_error("callback");
    }));
    FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#0#0#"));
    FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#0#0#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_EQ(calls, 2);
}

TEST(RegAppStateChangeCallBack, ReplacesTheCallBackBefore) {
    std::vector<std::string> calls;
    ASSERT_TRUE(Agent().RegAppStateChangeCallBackImpl([&calls](auto&&...) { calls.emplace_back("first"); }));
    ASSERT_TRUE(Agent().RegAppStateChangeCallBackImpl([&calls](auto&&...) { calls.emplace_back("second"); }));
    FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#0#0#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(calls, ElementsAre("second"));
}

TEST(RegAppStateChangeCallBack, KeepsTheCallBackWhenThePipeCannotBeOpened) {
    std::vector<std::string> calls;
    FakePipe::Get().ScriptOpen({{-1, EACCES}});
    EXPECT_FALSE(Agent().RegAppStateChangeCallBackImpl([&calls](auto&&...) { calls.emplace_back("kept"); }));
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().DeliverRecord(Record(4, "1#cam#17#0#0#0#"));
    ASSERT_TRUE(FakePipe::Get().WaitUntilDelivered());
    EXPECT_THAT(calls, ElementsAre("kept"));
}

}  // namespace
}  // namespace ProcMgr
