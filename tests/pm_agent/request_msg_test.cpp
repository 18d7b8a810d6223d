#include "pm_agent/request_msg.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace ProcMgr::Message {
namespace {

TEST(RequestMsg, HasTheLayoutOfTheWire) {
    EXPECT_EQ(sizeof(RequestMsg), 3984U);
    EXPECT_EQ(offsetof(RequestMsg, type), 0U);
    EXPECT_EQ(offsetof(RequestMsg, reserved0), 4U);
    EXPECT_EQ(offsetof(RequestMsg, size), 8U);
    EXPECT_EQ(offsetof(RequestMsg, data), 16U);
    EXPECT_EQ(sizeof(RequestMsg::data), 3964U);
    EXPECT_EQ(offsetof(RequestMsg, tail), 3980U);
}

TEST(RequestMsg, NumbersItsTypesAsTheWireDoes) {
    EXPECT_EQ(static_cast<uint32_t>(RequestType::START_APP), 0U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::RESTART_APP), 1U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::TERM_APP), 2U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::BASESERVICE_STATE_REPORT), 3U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::APP_STATE_REPORT), 4U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::APP_EXECUTION_REPORT), 5U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::LOAD_STARTUP_CFG), 6U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::RELOAD_STARTUP_CFG), 7U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::QUERY_APP_STATE), 9U);
    EXPECT_EQ(static_cast<uint32_t>(RequestType::QUERY_APP_STATE_RESP), 10U);
}

TEST(RequestMsg, GivesNoMorePayloadThanThereIsWhateverThePeerSays) {
    RequestMsg message{};
    message.size = 3964;
    EXPECT_EQ(PayloadSize(message), 3964U);
    message.size = 3965;
    EXPECT_EQ(PayloadSize(message), 3964U);
    message.size = UINT64_MAX;
    EXPECT_EQ(PayloadSize(message), 3964U);
    message.size = 0;
    EXPECT_EQ(PayloadSize(message), 0U);
}

}  // namespace
}  // namespace ProcMgr::Message
