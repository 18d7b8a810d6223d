#include "ss_server/state_query_payload.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/ss_server/ss_requests.h"

using namespace ProcMgr;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool Refuses(const std::string& payload, uint64_t size) {
    std::vector<std::string> names;
    return !SS::ReadStateQuery(MakeRequest(payload, size, 0), names);
}

bool Refuses(const std::string& payload) {
    return Refuses(payload, payload.size());
}

std::string PayloadOf(const SsToOwnerResponseMsg& response) {
    return std::string(response.payload, response.len);
}

std::string One(bool ok) {
    return std::string(1, ok ? '\1' : '\0');
}

}  // namespace

TEST(ReadStateQuery, ReadsNamesOfAnyBytesAndIgnoresWhatFollows) {
    std::vector<std::string> names{"old"};
    ASSERT_TRUE(SS::ReadStateQuery(MakeRequest(U32(3) + Sized("nav") + Sized("") + Sized("a#b") + "rest"), names));
    EXPECT_THAT(names, ElementsAre("nav", "", "a#b"));
}

TEST(ReadStateQuery, CountOfZeroIsValid) {
    std::vector<std::string> names{"old"};
    ASSERT_TRUE(SS::ReadStateQuery(MakeRequest(U32(0)), names));
    EXPECT_THAT(names, IsEmpty());
}

TEST(ReadStateQuery, StopsAtTheFirstBrokenName) {
    std::vector<std::string> names;
    EXPECT_FALSE(SS::ReadStateQuery(MakeRequest(U32(3) + U32(9) + "nav"), names));
    EXPECT_THAT(names, ElementsAre(""));
}

TEST(ReadStateQuery, EveryBoundViolationIsRefused) {
    EXPECT_TRUE(Refuses(""));
    EXPECT_TRUE(Refuses("abc"));
    EXPECT_TRUE(Refuses(U32(1)));
    EXPECT_TRUE(Refuses(U32(5) + Sized("")));                 // a count larger than the remaining bytes
    EXPECT_TRUE(Refuses(U32(0xffffffffU) + Sized("nav")));    // the same
    EXPECT_TRUE(Refuses(U32(1) + "ab"));                      // half a length
    EXPECT_TRUE(Refuses(U32(1) + U32(4) + "nav"));            // a length past the end
    EXPECT_TRUE(Refuses(U32(1) + U32(0xffffffffU) + "nav"));  // a length that wraps
    EXPECT_TRUE(Refuses(U32(2) + Sized("nav")));              // a name missing
    EXPECT_TRUE(Refuses(U32(0), 3889));                       // larger than the payload
    EXPECT_TRUE(Refuses(U32(0), 0xffffffffffffffffULL));
}

TEST(ReadStateQuery, As971EmptyNamesFillThePayload) {
    std::string payload = U32(971);
    for (int i = 0; i < 971; ++i) {
        payload += Sized("");
    }
    ASSERT_EQ(payload.size(), 3888U);
    std::vector<std::string> names;
    ASSERT_TRUE(SS::ReadStateQuery(MakeRequest(payload), names));
    EXPECT_EQ(names.size(), 971U);
}

TEST(WriteStateAnswer, WritesResultCountAndEntries) {
    SsToOwnerResponseMsg response;
    ASSERT_TRUE(SS::WriteStateAnswer(true, {{"nav", 4711, 0}, {"", -1, 1}}, response));
    EXPECT_EQ(PayloadOf(response),
              One(true) + U32(2) + Sized("nav") + U32(4711) + U32(0) + Sized("") + U32(0xffffffffU) + U32(1));
    EXPECT_EQ(response.len, 5U + 15U + 12U);
}

TEST(WriteStateAnswer, WithoutEntriesTheLengthIs5) {
    SsToOwnerResponseMsg response;
    ASSERT_TRUE(SS::WriteStateAnswer(false, {}, response));
    EXPECT_EQ(PayloadOf(response), One(false) + U32(0));
}

TEST(WriteStateAnswer, StopsAtTheFirstEntryThatDoesNotFitAndCountsTheWholeOnes) {
    const std::vector<AppStatus> states(971);
    SsToOwnerResponseMsg response;
    EXPECT_FALSE(SS::WriteStateAnswer(true, states, response));
    EXPECT_EQ(response.len, 5U + 323U * 12U);
    EXPECT_EQ(std::string(response.payload, 5), One(true) + U32(323));
}

TEST(WriteStateAnswer, AnEntryThatEndsExactlyAtTheEndFits) {
    const std::string name(3888 - 5 - 12, 'n');
    SsToOwnerResponseMsg response;
    EXPECT_TRUE(SS::WriteStateAnswer(true, {{name, 1, 0}}, response));
    EXPECT_EQ(response.len, 3888U);

    SsToOwnerResponseMsg refused;
    EXPECT_FALSE(SS::WriteStateAnswer(true, {{name + "n", 1, 0}, {"small", 1, 0}}, refused));
    EXPECT_EQ(PayloadOf(refused), One(true) + U32(0));
}
