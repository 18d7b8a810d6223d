#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "platform/include/bounded_copy.h"

namespace {

using Buffer = std::array<char, 8>;

Buffer Full() {
    Buffer buffer{};
    buffer.fill('x');
    return buffer;
}

std::string Text(const Buffer& buffer) {
    return std::string(buffer.data(), buffer.size());
}

TEST(MemcpyS, CopiesAsManyBytesAsAskedAndLeavesTheRest) {
    Buffer buffer = Full();
    EXPECT_EQ(memcpy_s(buffer.data(), buffer.size(), "abc", 3), 0);
    EXPECT_EQ(Text(buffer), "abcxxxxx");
}

TEST(MemcpyS, FillsTheWholeDestination) {
    Buffer buffer = Full();
    EXPECT_EQ(memcpy_s(buffer.data(), buffer.size(), "12345678", 8), 0);
    EXPECT_EQ(Text(buffer), "12345678");
}

TEST(MemcpyS, CopiesNothingForACountOfZero) {
    Buffer buffer = Full();
    EXPECT_EQ(memcpy_s(buffer.data(), buffer.size(), "abc", 0), 0);
    EXPECT_EQ(Text(buffer), "xxxxxxxx");
}

TEST(MemcpyS, RefusesOneByteTooManyAndZeroesTheDestination) {
    Buffer buffer = Full();
    EXPECT_EQ(memcpy_s(buffer.data(), buffer.size(), "123456789", 9), ERANGE);
    EXPECT_EQ(Text(buffer), std::string(8, '\0'));
}

TEST(MemcpyS, RefusesANullSourceAndZeroesTheDestination) {
    Buffer buffer = Full();
    const void* volatile none = nullptr;
    EXPECT_EQ(memcpy_s(buffer.data(), buffer.size(), none, 3), EINVAL);
    EXPECT_EQ(Text(buffer), std::string(8, '\0'));
}

TEST(MemcpyS, RefusesANullDestinationAndOneWithoutRoomAndTouchesNothing) {
    void* volatile none = nullptr;
    EXPECT_EQ(memcpy_s(none, 8, "abc", 3), EINVAL);
    Buffer buffer = Full();
    EXPECT_EQ(memcpy_s(buffer.data(), 0, "abc", 0), EINVAL);
    EXPECT_EQ(Text(buffer), "xxxxxxxx");
}

TEST(MemsetS, SetsAsManyBytesAsAskedAndLeavesTheRest) {
    Buffer buffer = Full();
    EXPECT_EQ(memset_s(buffer.data(), buffer.size(), 'a', 3), 0);
    EXPECT_EQ(Text(buffer), "aaaxxxxx");
    EXPECT_EQ(memset_s(buffer.data(), buffer.size(), 'b', 0), 0);
    EXPECT_EQ(Text(buffer), "aaaxxxxx");
    EXPECT_EQ(memset_s(buffer.data(), buffer.size(), 0, 8), 0);
    EXPECT_EQ(Text(buffer), std::string(8, '\0'));
}

TEST(MemsetS, FillsTheWholeDestinationWhenAskedForMoreAndSaysSo) {
    Buffer buffer = Full();
    EXPECT_EQ(memset_s(buffer.data(), buffer.size(), 'a', 9), ERANGE);
    EXPECT_EQ(Text(buffer), "aaaaaaaa");
}

TEST(MemsetS, RefusesANullDestinationAndOneWithoutRoom) {
    void* volatile none = nullptr;
    EXPECT_EQ(memset_s(none, 8, 'a', 3), EINVAL);
    Buffer buffer = Full();
    EXPECT_EQ(memset_s(buffer.data(), 0, 'a', 0), EINVAL);
    EXPECT_EQ(Text(buffer), "xxxxxxxx");
}

}  // namespace
