#include "tools/ssctl/requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "ss_server/ss_to_owner_serialization.h"
#include "ss_server/state_query_payload.h"
#include "tools/ssctl/answers.h"

using namespace Ssctl;
using ProcMgr::AppInfo;
using ProcMgr::kSsPayloadMax;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

AppInfo App(std::string name, uint32_t optionType, std::vector<std::string> argv = {},
            std::map<int32_t, std::vector<std::string>> dynamicPara = {}) {
    AppInfo app;
    app.name = std::move(name);
    app.optionType = optionType;
    app.argv = std::move(argv);
    app.dynamicPara = std::move(dynamicPara);
    return app;
}

ProcMgr::SsToOwnerRequestMsg Received(const std::string& payload) {
    Request request;
    request.payload = payload;
    return MakeRecord(request);
}

std::string Bytes(const ProcMgr::SsToOwnerRequestMsg& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof(record));
}

}  // namespace

TEST(WriteChange, WritesEveryFieldWithItsHash) {
    EXPECT_EQ(*WriteChange({App("a", 1), App("b", 0, {"x", "y"}, {{-1, {}}, {2, {"p", "q"}}}), App("c", 2, {""})}),
              "3#a#1#0#0#b#0#2#x#y#2#-1#0#2#2#p#q#c#2#1##0#");
}

TEST(WriteChange, IsReadByTheServiceAsItWasMeant) {
    const auto payload = WriteChange({App("b", 0, {"x", "y"}, {{-1, {}}, {2, {"p", "q"}}}), App("c", 1)});
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ProcMgr::SS::UnPackChangeAppInfoRequestMsg(Received(*payload), apps));
    ASSERT_THAT(apps, SizeIs(2));
    EXPECT_EQ(apps[0].name, "b");
    EXPECT_THAT(apps[0].argv, ElementsAre("x", "y"));
    EXPECT_EQ(apps[0].dynamicPara, (std::map<int32_t, std::vector<std::string>>{{-1, {}}, {2, {"p", "q"}}}));
    EXPECT_EQ(apps[1].optionType, 1U);
}

TEST(WriteChange, TakesARequestThatFillsThePayloadAndRefusesOneByteMore) {
    const size_t frame = std::string("1##0#0#0#").size();
    EXPECT_EQ(WriteChange({App(std::string(kSsPayloadMax - frame, 'n'), 0)})->size(), kSsPayloadMax);
    EXPECT_EQ(WriteChange({App(std::string(kSsPayloadMax - frame + 1, 'n'), 0)}).What(),
              "the request has 3889 bytes; at most 3888 can be sent, so split it into several");
}

TEST(WriteChange, RefusesWhatTheServiceWouldRefuse) {
    EXPECT_EQ(WriteChange(std::vector<AppInfo>(1025, App("a", 0))).What(),
              "the applications are 1025; a request takes at most 1024");
    EXPECT_EQ(WriteChange({App("a", 0, std::vector<std::string>(1025))}).What(),
              "the arguments of 'a' are 1025; a request takes at most 1024");
    EXPECT_EQ(WriteChange({App("a", 0, {}, {{-1, {}}, {0, {}}, {1, {}}, {2, {}}})}).What(),
              "the dynamic parameters of 'a' are 4; a request takes at most 3");
    EXPECT_EQ(WriteChange({App("a", 0, {}, {{3, {}}})}).What(), "the dynamic parameter 3 of 'a' is above the last, 2");
    EXPECT_EQ(WriteChange({App("a", 0, {}, {{0, std::vector<std::string>(1025)}})}).What(),
              "the values of a dynamic parameter of 'a' are 1025; a request takes at most 1024");
}

TEST(WriteVerification, WritesTheNamesInOrder) {
    EXPECT_EQ(*WriteVerification({{"b", 1}, {"a", 4294967295U}}), "2#a#4294967295#b#1#");
}

TEST(WriteVerification, RefusesWhatDoesNotFit) {
    std::map<std::string, uint32_t> apps;
    for (int at = 0; at < 1025; ++at) {
        apps.emplace(std::to_string(at), 0);
    }
    EXPECT_EQ(WriteVerification(apps).What(), "the applications are 1025; a request takes at most 1024");
    EXPECT_EQ(WriteVerification({{std::string(4000, 'n'), 1}}).What(),
              "the request has 4005 bytes; at most 3888 can be sent, so split it into several");
}

TEST(WriteSystemState, WritesASignedNumber) {
    EXPECT_EQ(WriteSystemState(1), "1#");
    EXPECT_EQ(WriteSystemState(-5), "-5#");
    int state = 0;
    EXPECT_TRUE(ProcMgr::SS::UnPackSetSystemStateRequest(Received(WriteSystemState(-5)), state));
    EXPECT_EQ(state, -5);
}

TEST(WriteStateQueries, WritesLengthsInFrontOfNames) {
    const auto batches = WriteStateQueries({"ab", "c"});
    ASSERT_THAT(*batches, SizeIs(1));
    EXPECT_THAT((*batches)[0].names, ElementsAre("ab", "c"));
    EXPECT_EQ((*batches)[0].payload, std::string("\2\0\0\0\2\0\0\0ab\1\0\0\0c", 15));
}

TEST(WriteStateQueries, AsksForNothingWhenThereIsNoName) {
    EXPECT_THAT(*WriteStateQueries({}), SizeIs(0));
}

TEST(WriteStateQueries, AsksInPiecesWhoseAnswersFit) {
    std::vector<std::string> names;
    for (int at = 0; at < 700; ++at) {
        names.push_back("a" + std::to_string(1000 + at));
    }
    const auto batches = WriteStateQueries(names);
    std::vector<std::string> all;
    for (const StateBatch& batch : *batches) {
        std::vector<std::string> read;
        ASSERT_TRUE(ProcMgr::SS::ReadStateQuery(Received(batch.payload), read));
        EXPECT_EQ(read, batch.names);
        std::vector<AppStatus> states;
        for (const std::string& name : read) {
            states.push_back({name, 1, 0});
        }
        ProcMgr::SsToOwnerResponseMsg response;
        EXPECT_TRUE(ProcMgr::SS::WriteStateAnswer(true, states, response)) << "the answer does not fit";
        all.insert(all.end(), read.begin(), read.end());
    }
    EXPECT_EQ(all, names);
    EXPECT_THAT(*batches, SizeIs(4)) << "228 entries of 17 bytes fit into 3883";
}

TEST(WriteStateQueries, TakesTheLongestNameWhoseAnswerFitsAndNoLonger) {
    EXPECT_THAT(*WriteStateQueries({std::string(3871, 'n')}), SizeIs(1));
    EXPECT_EQ(WriteStateQueries({std::string(3872, 'n')}).What(), "a name of 3872 bytes is too long for a state query");
}

TEST(MakeRecord, PutsSizeTimeOutAndPayloadIntoABufferOfZeros) {
    Request request;
    request.timeoutMs = 0x01020304;
    request.payload = "abc";
    std::string expected(3904, '\0');
    expected.replace(0, 8, std::string("\3\0\0\0\0\0\0\0", 8));
    expected.replace(8, 4, "\4\3\2\1");
    expected.replace(12, 3, "abc");
    EXPECT_EQ(Bytes(MakeRecord(request)), expected);
}
