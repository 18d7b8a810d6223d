#include "pm_agent/query_state_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using States = std::map<std::string, unsigned int>;

States Read(const std::string& payload) {
    return ReadStateAnswer(Record(10, payload));
}

TEST(StateQuery, IsCountAndSizedNamesByteForByte) {
    Message::RequestMsg message{};
    ASSERT_TRUE(WriteStateQuery({"cam", "", "lidar@left"}, message));

    const std::string expected(
        "\x03\0\0\0"
        "\x03\0\0\0cam"
        "\0\0\0\0"
        "\x0a\0\0\0lidar@left",
        29);
    EXPECT_EQ(message.type, 9U);
    EXPECT_EQ(message.reserved0, 0U);
    EXPECT_EQ(message.size, expected.size());
    EXPECT_EQ(std::string(message.data, sizeof(message.data)), expected + std::string(3964 - expected.size(), '\0'));
}

TEST(StateQuery, TakesANameThatEndsExactlyAtTheEndOfTheBuffer) {
    Message::RequestMsg message{};
    ASSERT_TRUE(WriteStateQuery({std::string(3964 - 8, 'n')}, message));
    EXPECT_EQ(message.size, 3964U);
    EXPECT_EQ(message.data[3963], 'n');
}

TEST(StateQuery, FailsForANameThatRunsPastTheBuffer) {
    Message::RequestMsg message{};
    EXPECT_FALSE(WriteStateQuery({std::string(3964 - 7, 'n')}, message));
    EXPECT_FALSE(WriteStateQuery({std::string(3964 - 8, 'n'), ""}, message));
    EXPECT_FALSE(WriteStateQuery({std::string(5000, 'n')}, message));
}

TEST(StateQuery, ReplacesWhatTheRecordHeldBefore) {
    Message::RequestMsg message = Record(4, std::string(100, 'x'));
    ASSERT_TRUE(WriteStateQuery({"a"}, message));
    EXPECT_EQ(std::string(message.data + 9, 91), std::string(91, '\0'));
}

TEST(StateAnswer, IsReadIntoNamesAndStates) {
    EXPECT_EQ(Read(U32(2) + Sized("cam") + U32(0) + Sized("lidar") + U32(0xffffffff)),
              (States{{"cam", 0}, {"lidar", 0xffffffff}}));
}

TEST(StateAnswer, KeepsTheLastOfSeveralStatesOfAName) {
    EXPECT_EQ(Read(U32(2) + Sized("cam") + U32(0) + Sized("cam") + U32(2)), (States{{"cam", 2}}));
}

TEST(StateAnswer, StopsAtTheFirstEntryThatRunsPastItsSizeAndKeepsWhatWasRead) {
    const std::string whole = U32(2) + Sized("cam") + U32(1) + Sized("lidar") + U32(2);
    for (size_t size = 0; size < whole.size(); ++size) {
        const States expected = size >= 15 ? States{{"cam", 1}} : States{};
        EXPECT_EQ(Read(whole.substr(0, size)), expected) << "size " << size;
    }
}

TEST(StateAnswer, IsNotMisledByCountsAndLengthsThatLie) {
    EXPECT_EQ(Read(U32(0xffffffff) + Sized("cam") + U32(1)), (States{{"cam", 1}}));
    EXPECT_EQ(Read(U32(1) + U32(0xffffffff) + "cam" + U32(1)), States{});
    EXPECT_EQ(Read(U32(1) + U32(0xfffffffc) + "cam" + U32(1)), States{});
    EXPECT_EQ(Read(U32(1) + Sized("cam") + U32(1) + Sized("more") + U32(1)), (States{{"cam", 1}}));
    EXPECT_EQ(Read(U32(0)), States{});
}

TEST(StateAnswer, OfASizeBeyondTheRecordIsReadUpToTheRecordsEnd) {
    Message::RequestMsg message = Record(10, U32(2) + Sized("cam") + U32(1));
    message.size = UINT64_MAX;
    // Behind the entry come zero bytes: an empty name in state 0.
    EXPECT_EQ(ReadStateAnswer(message), (States{{"", 0}, {"cam", 1}}));
}

TEST(StateAnswer, TakesAnEmptyName) {
    EXPECT_EQ(Read(U32(1) + Sized("") + U32(1)), (States{{"", 1}}));
}

}  // namespace
}  // namespace ProcMgr
