#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/include/bounded_copy.h"

namespace {

using Memory = std::vector<char>;

TEST(MemcpyS, CopiesAsMuchAsAsked) {
    Memory memory(4, 'z');
    EXPECT_EQ(memcpy_s(memory.data(), memory.size(), "abc", 3), 0);
    EXPECT_EQ(memory, (Memory{'a', 'b', 'c', 'z'}));
}

TEST(MemcpyS, FillsItsDestinationToTheLastByte) {
    Memory memory(3, 'z');
    EXPECT_EQ(memcpy_s(memory.data(), memory.size(), "abc", 3), 0);
    EXPECT_EQ(memory, (Memory{'a', 'b', 'c'}));
}

TEST(MemcpyS, TakesACountOfZero) {
    Memory memory(2, 'z');
    EXPECT_EQ(memcpy_s(memory.data(), memory.size(), "abc", 0), 0);
    EXPECT_EQ(memory, (Memory{'z', 'z'}));
}

TEST(MemcpyS, RefusesMoreThanFitsAndZeroesTheDestination) {
    Memory memory(2, 'z');
    EXPECT_EQ(memcpy_s(memory.data(), memory.size(), "abc", 3), ERANGE);
    EXPECT_EQ(memory, (Memory{0, 0}));
    EXPECT_EQ(memcpy_s(memory.data(), memory.size(), "abc", SIZE_MAX), ERANGE);
}

TEST(MemcpyS, RefusesANullSourceAndZeroesTheDestination) {
    Memory memory(2, 'z');
    EXPECT_EQ(memcpy_s(memory.data(), memory.size(), nullptr, 1), EINVAL);
    EXPECT_EQ(memory, (Memory{0, 0}));
}

TEST(MemcpyS, RefusesANullOrEmptyDestination) {
    Memory memory(2, 'z');
    EXPECT_EQ(memcpy_s(nullptr, 2, "ab", 2), EINVAL);
    EXPECT_EQ(memcpy_s(memory.data(), 0, "ab", 2), EINVAL);
    EXPECT_EQ(memory, (Memory{'z', 'z'}));
}

TEST(MemcpyS, ErrorNumbersAreThoseOfTheMessages) {
    EXPECT_EQ(EINVAL, 22);
    EXPECT_EQ(ERANGE, 34);
}

TEST(MemsetS, FillsAsMuchAsAsked) {
    Memory memory(3, 'z');
    EXPECT_EQ(memset_s(memory.data(), memory.size(), 'a', 2), 0);
    EXPECT_EQ(memory, (Memory{'a', 'a', 'z'}));
    EXPECT_EQ(memset_s(memory.data(), memory.size(), 0, 0), 0);
    EXPECT_EQ(memory, (Memory{'a', 'a', 'z'}));
}

TEST(MemsetS, FillsTheWholeDestinationWhenTheCountIsTooLarge) {
    Memory memory(3, 'z');
    EXPECT_EQ(memset_s(memory.data(), memory.size(), 'a', 4), ERANGE);
    EXPECT_EQ(memory, (Memory{'a', 'a', 'a'}));
}

TEST(MemsetS, RefusesANullOrEmptyDestination) {
    Memory memory(2, 'z');
    EXPECT_EQ(memset_s(nullptr, 2, 0, 2), EINVAL);
    EXPECT_EQ(memset_s(memory.data(), 0, 0, 2), EINVAL);
    EXPECT_EQ(memory, (Memory{'z', 'z'}));
}

}  // namespace
