#include "tools/ssctl/answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "ss_server/ss_to_owner_serialization.h"
#include "ss_server/state_query_payload.h"

using namespace Ssctl;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

Record Answer(uint32_t length, const std::string& payload) {
    Record record{};
    std::memcpy(record.data(), &length, sizeof(length));
    std::memcpy(record.data() + 12, payload.data(), payload.size());
    return record;
}

std::string U32(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

std::string PayloadOf(const ProcMgr::SsToOwnerResponseMsg& response) {
    return std::string(response.payload, response.len);
}

}  // namespace

TEST(TakePayload, TakesAsManyBytesAsTheAnswerSays) {
    EXPECT_EQ(*TakePayload(11, Answer(3, "1#xjunk")), "1#x");
    EXPECT_EQ(TakePayload(3896, Answer(3888, "x"))->size(), 3888U);
}

TEST(TakePayload, RefusesALengthThatIsTooLargeOrDisagreesWithTheResult) {
    for (const auto& [result, length] : {std::pair{3897, 3889U}, {7, 0xFFFFFFFFU}, {10, 3U}, {12, 3U}, {0, 0U}}) {
        EXPECT_EQ(TakePayload(result, Answer(length, "")).What(), "the answer's length does not agree with its result");
    }
}

TEST(TakePayload, RefusesAnEmptyAnswer) {
    EXPECT_EQ(TakePayload(8, Answer(0, "")).What(),
              "the answer is empty; either it did not fit, or the service does not know the request");
}

TEST(ReadChange, ReadsWhatTheServiceWrites) {
    ProcMgr::SsToOwnerResponseMsg response;
    ASSERT_TRUE(ProcMgr::SS::PackChangeAppInfoResponse(
        true, {{"nav", AppChangeState::START_FAILED}, {"", AppChangeState::SUCCESS}}, response));
    const auto answer = ReadChange(PayloadOf(response));
    EXPECT_TRUE(answer->ok);
    ASSERT_THAT(answer->apps, SizeIs(2));
    EXPECT_EQ(answer->apps[0].appName, "nav");
    EXPECT_EQ(answer->apps[0].state, AppChangeState::START_FAILED);
    EXPECT_EQ(answer->apps[1].appName, "");
}

TEST(ReadChange, ReadsARefusalWithoutApplications) {
    const auto answer = ReadChange("1#0#");
    EXPECT_FALSE(answer->ok);
    EXPECT_THAT(answer->apps, SizeIs(0));
}

TEST(ReadChange, KeepsStatesThatItDoesNotKnow) {
    EXPECT_EQ(static_cast<uint32_t>(ReadChange("2#0#a#4294967295#")->apps[0].state), 4294967295U);
}

TEST(ReadChange, RefusesEverythingElse) {
    for (const std::string text : {"",
                                   "#",
                                   "1",
                                   "1#",
                                   "1#0",
                                   "0#1#",
                                   "0#",
                                   "1#2#",
                                   "1#-1#",
                                   "1#1#x",
                                   "1#1##",
                                   "2#1#",
                                   "2#1#a#",
                                   "2#1#a#0",
                                   "2#1#a#x#",
                                   "2#1#a#4294967296#",
                                   "2#1#a#0#b#0#",
                                   "3#1#a#0#",
                                   "4294967295#1#a#0#",
                                   "4294967296#1#",
                                   "+1#1#",
                                   " 1#1#",
                                   "2#1#a#-1#"}) {
        EXPECT_EQ(ReadChange(text).What(), "the answer is no change result") << text;
    }
    EXPECT_EQ(ReadChange(std::string("1#1#\0", 5)).What(), "the answer is no change result");
}

TEST(ReadList, ReadsTheNamesInOrder) {
    const auto answer = ReadList("1#b#a##");
    EXPECT_TRUE(answer->ok);
    EXPECT_THAT(answer->names, ElementsAre("b", "a", ""));
    EXPECT_THAT(ReadList("1#")->names, SizeIs(0));
    EXPECT_FALSE(ReadList("0#")->ok);
}

TEST(ReadList, RefusesEverythingElse) {
    for (const std::string text : {"", "1", "2#", "x#", "0#a#", "1#a", "1#a#b"}) {
        EXPECT_EQ(ReadList(text).What(), "the answer is no list of applications") << text;
    }
}

TEST(ReadState, ReadsWhatTheServiceWrites) {
    ProcMgr::SsToOwnerResponseMsg response;
    ASSERT_TRUE(ProcMgr::SS::WriteStateAnswer(true, {{"nav", 4711, 0}, {"", -1, 1}}, response));
    const auto answer = ReadState(PayloadOf(response));
    EXPECT_TRUE(answer->ok);
    ASSERT_THAT(answer->apps, SizeIs(2));
    EXPECT_EQ(answer->apps[0].appName, "nav");
    EXPECT_EQ(answer->apps[0].pid, 4711);
    EXPECT_EQ(answer->apps[0].state, 0);
    EXPECT_EQ(answer->apps[1].pid, -1);
    EXPECT_EQ(answer->apps[1].state, 1);
}

TEST(ReadState, ReadsAFailureWithoutEntries) {
    EXPECT_FALSE(ReadState(std::string(5, '\0'))->ok);
}

TEST(ReadState, RefusesEverythingElse) {
    const std::string entry = U32(1) + "a" + U32(7) + U32(0);
    for (const std::string& text :
         {std::string(), std::string("\1"), "\1" + std::string(3, '\0'), "\2" + U32(0), "\xFF" + U32(0),
          "\1" + U32(0) + "x", "\1" + U32(1), "\1" + U32(2) + entry, "\1" + U32(1) + entry + "x",
          "\1" + U32(0xFFFFFFFF) + entry, "\1" + U32(1) + U32(0xFFFFFFFF) + "a" + U32(7) + U32(0),
          "\1" + U32(1) + U32(2) + "a" + U32(7) + U32(0)}) {
        EXPECT_EQ(ReadState(text).What(), "the answer is no list of states") << text.size();
    }
}

TEST(ReadFlag, TakesOneDigitAndNothingElse) {
    EXPECT_TRUE(*ReadFlag("1"));
    EXPECT_FALSE(*ReadFlag("0"));
    for (const std::string text : {"", "2", "1#", "10", " 1", "true"}) {
        EXPECT_EQ(ReadFlag(text).What(), "the answer is no result") << text;
    }
}

TEST(ReadFlagField, TakesOneFieldAndNothingElse) {
    EXPECT_TRUE(*ReadFlagField("1#"));
    EXPECT_FALSE(*ReadFlagField("0#"));
    for (const std::string text : {"", "1", "2#", "1##", "01#", "#"}) {
        EXPECT_EQ(ReadFlagField(text).What(), "the answer is no result") << text;
    }
}

TEST(ReadEvent, TakesADecimalNumberAndNothingElse) {
    EXPECT_EQ(*ReadEvent("0"), 0U);
    EXPECT_EQ(*ReadEvent("4294967295"), 4294967295U);
    for (const std::string text : {"", "-1", "1#", "#", "4294967296", "1 ", "x"}) {
        EXPECT_EQ(ReadEvent(text).What(), "the event is no decimal number") << text;
    }
}
