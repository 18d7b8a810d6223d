#include "common/field_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace ProcMgr {
namespace {

TEST(FieldReader, ReadsFieldAfterField) {
    FieldReader reader("cam#2#-7##rest");
    EXPECT_EQ(reader.ReadText(), "cam");
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 2U);
    EXPECT_EQ(reader.ReadNumber<int32_t>(), -7);
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_FALSE(reader.HasFailed());
    EXPECT_EQ(reader.Rest(), "rest");
}

TEST(FieldReader, FailsOnAFieldWithoutItsNumberSignAndReadsNothingFromThenOn) {
    FieldReader reader("a#b");
    EXPECT_EQ(reader.ReadText(), "a");
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_TRUE(reader.HasFailed());
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 0U);
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_EQ(reader.Rest(), "");
}

TEST(FieldReader, TakesOnlyDecimalDigitsForANumber) {
    for (const char* text : {"#", "x#", "1x#", " 1#", "1 #", "+1#", "-1#", "0x1#", "1.0#", "4294967296#", "-#"}) {
        FieldReader reader(text);
        EXPECT_EQ(reader.ReadNumber<uint32_t>(), 0U) << text;
        EXPECT_TRUE(reader.HasFailed()) << text;
    }
}

TEST(FieldReader, TakesAMinusSignWhereTheTypeIsSigned) {
    FieldReader reader("-2147483648#-0#-2147483649#");
    EXPECT_EQ(reader.ReadNumber<int32_t>(), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(reader.ReadNumber<int32_t>(), 0);
    EXPECT_FALSE(reader.HasFailed());
    EXPECT_EQ(reader.ReadNumber<int32_t>(), 0);
    EXPECT_TRUE(reader.HasFailed());
}

TEST(FieldReader, AllowsLeadingZerosAndTheLargestNumber) {
    FieldReader reader("0000000000000000000000001#4294967295#");
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 1U);
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 4294967295U);
    EXPECT_FALSE(reader.HasFailed());
}

TEST(FieldReader, KeepsItsFailureThoughLaterFieldsWouldBeGood) {
    FieldReader reader("x#5#");
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 0U);
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 0U);
    EXPECT_TRUE(reader.HasFailed());
}

TEST(FieldReader, ReadsALastNumberWithAndWithoutItsNumberSign) {
    FieldReader bare("-1");
    EXPECT_EQ(bare.ReadLastNumber<int32_t>(), -1);
    EXPECT_FALSE(bare.HasFailed());
    EXPECT_EQ(bare.Rest(), "");

    FieldReader closed("3#more");
    EXPECT_EQ(closed.ReadLastNumber<int32_t>(), 3);
    EXPECT_FALSE(closed.HasFailed());
    EXPECT_EQ(closed.Rest(), "more");

    for (const char* text : {"", "#", "1x", "x#", "1 "}) {
        FieldReader bad(text);
        EXPECT_EQ(bad.ReadLastNumber<int32_t>(), 0) << text;
        EXPECT_TRUE(bad.HasFailed()) << text;
    }
}

TEST(FieldReader, DoesNotReadALastNumberAfterAFailure) {
    FieldReader reader("5");
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_EQ(reader.ReadLastNumber<int32_t>(), 0);
    EXPECT_TRUE(reader.HasFailed());
}

TEST(FieldReader, KeepsNulBytesAndLooksNotBehindTheEnd) {
    const std::string memory("a\0b#1#", 6);
    FieldReader reader(std::string_view(memory.data(), 5));
    EXPECT_EQ(reader.ReadText(), std::string("a\0b", 3));
    EXPECT_EQ(reader.ReadNumber<uint32_t>(), 0U) << "the closing sign stands behind the end";
    EXPECT_TRUE(reader.HasFailed());
}

TEST(FieldReader, FailsOnAnEmptyText) {
    FieldReader reader(std::string_view{});
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_TRUE(reader.HasFailed());
}

TEST(TolerantFieldReader, ReadsFieldAfterField) {
    TolerantFieldReader reader("2#cam#17#");
    EXPECT_EQ(reader.ReadNumber(), 2U);
    EXPECT_EQ(reader.ReadText(), "cam");
    EXPECT_EQ(reader.ReadNumber(), 17U);
    EXPECT_FALSE(reader.HasFailed());
}

TEST(TolerantFieldReader, SkipsTheOneByteBehindANumberWhateverItIs) {
    TolerantFieldReader reader("12x34#");
    EXPECT_EQ(reader.ReadNumber(), 12U);
    EXPECT_EQ(reader.ReadNumber(), 34U);
    EXPECT_FALSE(reader.HasFailed());
}

TEST(TolerantFieldReader, ReadsANumberAtTheEndOfTheText) {
    TolerantFieldReader reader("12");
    EXPECT_EQ(reader.ReadNumber(), 12U);
    EXPECT_FALSE(reader.HasFailed());
    EXPECT_EQ(reader.ReadNumber(), 0U);
    EXPECT_TRUE(reader.HasFailed());
}

TEST(TolerantFieldReader, FailsWhereNoDigitStandsAndReadsZeroAndEmptyFromThenOn) {
    TolerantFieldReader reader("x1#cam#");
    EXPECT_EQ(reader.ReadNumber(), 0U);
    EXPECT_TRUE(reader.HasFailed());
    EXPECT_EQ(reader.ReadNumber(), 0U);
    EXPECT_EQ(reader.ReadText(), "");
}

TEST(TolerantFieldReader, SaturatesANumberThatIsTooLargeAndFails) {
    TolerantFieldReader reader("4294967296#5#");
    EXPECT_EQ(reader.ReadNumber(), 4294967295U);
    EXPECT_TRUE(reader.HasFailed());
    EXPECT_EQ(reader.ReadNumber(), 0U);
}

TEST(TolerantFieldReader, TakesTheLargestNumberThatFits) {
    TolerantFieldReader reader("4294967295#5#");
    EXPECT_EQ(reader.ReadNumber(), 4294967295U);
    EXPECT_EQ(reader.ReadNumber(), 5U);
    EXPECT_FALSE(reader.HasFailed());
}

TEST(TolerantFieldReader, TakesATextWithoutItsNumberSignToTheEnd) {
    TolerantFieldReader reader("cam");
    EXPECT_EQ(reader.ReadText(), "cam");
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_EQ(reader.ReadNumber(), 0U);
}

TEST(TolerantFieldReader, TakesNoSign) {
    TolerantFieldReader minus("-1#");
    EXPECT_EQ(minus.ReadNumber(), 0U);
    EXPECT_TRUE(minus.HasFailed());
    TolerantFieldReader plus("+1#");
    EXPECT_EQ(plus.ReadNumber(), 0U);
    EXPECT_TRUE(plus.HasFailed());
}

TEST(TolerantFieldReader, TakesAnEmptyText) {
    TolerantFieldReader reader(std::string_view{});
    EXPECT_EQ(reader.ReadText(), "");
    EXPECT_EQ(reader.ReadNumber(), 0U);
}

}  // namespace
}  // namespace ProcMgr
