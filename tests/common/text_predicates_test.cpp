#include "common/text_predicates.h"

#include <gtest/gtest.h>

namespace ProcMgr {
namespace {

TEST(IsStrDigits, IsTrueForTheEmptyString) {
    EXPECT_TRUE(IsStrDigits(""));
}

TEST(IsStrDigits, IsTrueForDigitsOnly) {
    EXPECT_TRUE(IsStrDigits("0123456789"));
}

TEST(IsStrDigits, IsFalseForAStringThatHoldsALetter) {
    EXPECT_FALSE(IsStrDigits("12a"));
    EXPECT_FALSE(IsStrDigits("a12"));
}

TEST(IsStrDigits, IsFalseForALeadingMinusSign) {
    EXPECT_FALSE(IsStrDigits("-1"));
}

TEST(IsStrDigits, IsFalseForBlanksNulsAndBytesAbove127) {
    EXPECT_FALSE(IsStrDigits(" 1"));
    EXPECT_FALSE(IsStrDigits(std::string("1\0", 2)));
    EXPECT_FALSE(IsStrDigits("1\xff"));
}

}  // namespace
}  // namespace ProcMgr
