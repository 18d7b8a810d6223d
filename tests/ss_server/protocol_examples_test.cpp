// The examples of docs/protocol.md between the system-state manager and the owner: each row is sent to the service.
#include "tests/common/protocol_examples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/app_records.h"
#include "include/ss_to_owner_server.h"
#include "tests/ss_server/ss_requests.h"

namespace {

using Apps = std::vector<AppInfoForServer>;
using ProtocolExamples::Row;

/// The group of the page: `power` and `nav`; `nav` runs as 4711 and `cam` does not start.
bool Change(const Apps& term, const Apps& start, const Apps& restart, std::vector<AppChangeInfo>& result,
            int /*timeoutMs*/) {
    for (const Apps* apps : {&term, &start, &restart}) {
        for (const AppInfoForServer& app : *apps) {
            const bool fails = app.appName.compare(0, 3, "cam") == 0;
            result.emplace_back(app.appName, fails ? AppChangeState::START_FAILED : AppChangeState::SUCCESS);
        }
    }
    return true;
}

bool States(const std::vector<std::string>& names, std::vector<AppStatus>& states, int /*timeoutMs*/) {
    for (const std::string& name : names) {
        const bool runs = name == "nav";
        states.push_back({name, runs ? 4711 : -1, runs ? 0 : 1});
    }
    return true;
}

class ProtocolPage : public testing::Test {
protected:
    void SetUp() override {
        SsToOwnerServer& server = SsToOwnerServer::GetInstance();
        const auto yes = [] { return true; };
        ASSERT_EQ(server.RegSsChangeAppTimeoutCallBackImpl(Change, "res"), 0);
        ASSERT_EQ(server.RegSetSystemStateTimeoutCallBackImpl([](int, int) { return true; }, "res"), 0);
        ASSERT_EQ(server.RegReloadCallBackImpl(yes, "res"), 0);
        ASSERT_EQ(server.RegDumpCallBackImpl(yes, "res"), 0);
        ASSERT_EQ(server.RegStopAllAppCallBackImpl(yes, "res"), 0);
        ASSERT_EQ(server.RegQueryAppListCallBackImpl(
                      [](std::vector<std::string>& names) {
                          names = {"power", "nav"};
                          return true;
                      },
                      "res"),
                  0);
        ASSERT_EQ(server.RegSsVerifyAppCallBackImpl([](const auto&) { return true; }, "res"), 0);
        ASSERT_EQ(server.RegSsQueryAppStateCallBackImpl(States, "res"), 0);
    }

    static std::vector<Row> Rows(size_t cells) {
        std::vector<Row> rows;
        for (const Row& row : ProtocolExamples::Under("System-state manager: the buffer")) {
            if (row.values.size() == cells) {
                rows.push_back(row);
            }
        }
        return rows;
    }
};

TEST_F(ProtocolPage, ShowsWhatTheServiceAnswersToEachCommand) {
    const std::vector<Row> rows = Rows(2);
    EXPECT_EQ(rows.size(), 15U);
    for (const Row& row : rows) {
        const auto cmd = static_cast<unsigned int>(std::stoul(row.label));
        IoctlBuffer buffer(row.values[0]);
        EXPECT_EQ(buffer.Send(cmd), static_cast<int>(row.values[1].size() + 8)) << row.label;
        EXPECT_EQ(buffer.All(), buffer.Expected(row.values[1])) << row.label;
    }
}

TEST_F(ProtocolPage, ShowsTheWholeBufferOfOneRequest) {
    const std::vector<Row> rows = Rows(1);
    ASSERT_EQ(rows.size(), 2U);
    IoctlBuffer buffer(MakeRequest("1#", 2, 5000));
    EXPECT_EQ(buffer.Bytes(0, 14), rows[0].values[0]);
    EXPECT_EQ(buffer.Send(2), 10);
    EXPECT_EQ(buffer.Bytes(0, 14), rows[1].values[0]);
}

}  // namespace
