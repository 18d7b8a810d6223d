// The examples of docs/protocol.md between the owner and the process manager: each row against the writers and readers.
#include "tests/common/protocol_examples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "pm_agent/call_result.h"
#include "pm_agent/procmgr_agent_serialization.h"
#include "pm_agent/query_state_message.h"
#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::Pair;

/// Each example may be taken once, so that none can be left out.
class ProtocolPage : public testing::Test {
protected:
    void SetUp() override {
        for (const ProtocolExamples::Row& row : ProtocolExamples::Under("Process manager: the record")) {
            ASSERT_EQ(row.values.size(), 1U) << row.label;
            examples_[row.label] = row.values.front();
        }
    }

    std::string Take(const std::string& label) {
        const auto found = examples_.find(label);
        if (found == examples_.end()) {
            ADD_FAILURE() << "no example '" << label << "'";
            return {};
        }
        const std::string value = found->second;
        examples_.erase(found);
        return value;
    }

    /// What was sent since the last call: one record, whose data is the example.
    void ExpectSent(const std::string& label, uint32_t type, const Message::RequestMsg& sent) {
        EXPECT_EQ(sent.type, type) << label;
        EXPECT_EQ(Payload(sent), Take(label));
    }

    std::map<std::string, std::string> examples_;
};

using Serialization::PackedRequests;

Message::RequestMsg OneRecord(Message::RequestType type, PackedRequests packed) {
    std::vector<Message::RequestMsg> records;
    EXPECT_TRUE(Serialization::ProcMgrCombinePiecesMsg(type, packed, records));
    EXPECT_EQ(records.size(), 1U);
    return records.empty() ? Message::RequestMsg{} : records.front();
}

Message::RequestMsg Start(const std::vector<Message::StartAppInfo>& apps) {
    PackedRequests packed;
    EXPECT_TRUE(Serialization::ProcMgrPackStartRequest(apps, packed));
    return OneRecord(Message::RequestType::START_APP, packed);
}

Message::RequestMsg Restart(const std::vector<Message::RestartAppInfo>& apps) {
    PackedRequests packed;
    EXPECT_TRUE(Serialization::ProcMgrPackRestartRequest(apps, packed));
    return OneRecord(Message::RequestType::RESTART_APP, packed);
}

Message::RequestMsg Term(const std::vector<Message::TermAppInfo>& apps) {
    PackedRequests packed;
    EXPECT_TRUE(Serialization::ProcMgrPackTermRequest(apps, packed));
    return OneRecord(Message::RequestType::TERM_APP, packed);
}

Message::RequestMsg BaseServices(uint32_t state) {
    PackedRequests packed;
    EXPECT_TRUE(Serialization::ProcMgrPackBaseServiceStateRequest({state}, packed));
    return OneRecord(Message::RequestType::BASESERVICE_STATE_REPORT, packed);
}

Message::RequestMsg Execution(const Message::AppExecInfo& info) {
    PackedRequests packed;
    EXPECT_TRUE(Serialization::ProcMgrPackAppExecInfoRequest(info, packed));
    return OneRecord(Message::RequestType::APP_EXECUTION_REPORT, packed);
}

Message::RequestMsg Configuration(const Message::StartupCfgInfo& info) {
    PackedRequests packed;
    EXPECT_TRUE(Serialization::ProcMgrPackMatchDataAndPathRequest(info, packed));
    return OneRecord(Message::RequestType::LOAD_STARTUP_CFG, packed);
}

TEST_F(ProtocolPage, ShowsWhatTheOwnerWritesAndReads) {
    ExpectSent("start `cam` and `lidar -v \"a b\"`", 0, Start({{"lidar", {"-v", "a b"}, {}}, {"cam", {}, {}}}));
    ExpectSent("start `cam@front` with parameter 0 = 1280, 720", 0, Start({{"cam@front", {}, {{0, {"1280", "720"}}}}}));
    ExpectSent("restart `cam` with `-v`", 1, Restart({{"cam", {"-v"}, {}}}));
    ExpectSent("terminate `bb` and `a`", 2, Term({{"bb"}, {"a"}}));
    ExpectSent("the base services run", 3, BaseServices(2));
    ExpectSent("`cam` runs", 5, Execution({"cam", 0, 0, 0}));
    ExpectSent("read the manifests of `/etc/apps` with A = 1, B = 2", 6,
               Configuration({{{"A", "1"}, {"B", "2"}}, "/etc/apps"}));

    const Message::RequestMsg term = Term({{"bb"}, {"a"}});
    std::string record = Take("terminate `bb` and `a`, the record up to its zeros");
    record.resize(3984, '\0');
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&term), sizeof(term)), record);

    Message::RequestMsg query{};
    ASSERT_TRUE(WriteStateQuery({"cam", "lidar"}, query));
    ExpectSent("query of `cam` and `lidar`", 9, query);
    EXPECT_THAT(ReadStateAnswer(Record(10, Take("query's answer: `cam` runs, `lidar` does not"))),
                ElementsAre(Pair("cam", 0U), Pair("lidar", 1U)));

    EXPECT_EQ(ReadCallResult(Take("result: done")), 0);
    EXPECT_EQ(ReadCallResult(Take("result: refused")), -1);

    std::vector<Message::AppStateInfo> states;
    const std::string report = Take("report: `cam` runs as 4711, `lidar` ended by an input error");
    ASSERT_TRUE(Serialization::ProcMgrUnpackedAppStateRequest(Record(4, report), states));
    ASSERT_EQ(states.size(), 2U);
    EXPECT_EQ(states[0].appName, "cam");
    EXPECT_EQ(states[0].pid, 4711U);
    EXPECT_EQ(states[0].appState, 0U);
    EXPECT_EQ(states[1].appName, "lidar");
    EXPECT_EQ(states[1].pid, 4712U);
    EXPECT_EQ(states[1].appState, 4U);
    EXPECT_EQ(states[1].reason, 1U);

    for (const auto& [label, bytes] : examples_) {
        ADD_FAILURE() << "the example '" << label << "' is in no test";
    }
}

}  // namespace
}  // namespace ProcMgr
