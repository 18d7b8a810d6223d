#include "pm_agent/call_result.h"

#include <gtest/gtest.h>

#include <string>

namespace ProcMgr {
namespace {

TEST(CallResult, IsANumberWithOrWithoutItsSeparator) {
    EXPECT_EQ(ReadCallResult("0"), 0);
    EXPECT_EQ(ReadCallResult("0#"), 0);
    EXPECT_EQ(ReadCallResult("7"), 7);
    EXPECT_EQ(ReadCallResult("-3#"), -3);
    EXPECT_EQ(ReadCallResult("000"), 0);
    EXPECT_EQ(ReadCallResult("2147483647"), 2147483647);
    EXPECT_EQ(ReadCallResult("-2147483648"), -2147483647 - 1);
}

TEST(CallResult, IsMinusOneForAnyOtherText) {
    for (const std::string text :
         {"", "#", "##", "0##", "0#1", "0x", "x", " 0", "0 ", "+0", "-", "2147483648", "0\n"}) {
        EXPECT_EQ(ReadCallResult(text), -1) << "text: '" << text << "'";
    }
    EXPECT_EQ(ReadCallResult(std::string("0\0", 2)), -1);
}

}  // namespace
}  // namespace ProcMgr
