#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/posix/common_posix/unique_fd.h"
#include "platform/posix/vek/bus_frame.h"

using ProcMgr::DecodeBusFrame;
using ProcMgr::SendBusFrame;
using ProcMgr::UniqueFd;

namespace {

std::string Bytes(const char* hex) {
    std::string bytes;
    unsigned int value = 0;
    int used = 0;
    for (const char* at = hex; std::sscanf(at, " %2x%n", &value, &used) == 1; at += used) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

/// The packet that the sender makes of it.
std::string Sent(const VekFrameHead& head, const std::string& payload) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd from(ends[0]);
    const UniqueFd to(ends[1]);
    EXPECT_EQ(SendBusFrame(from.Get(), head, payload.data()), 0);
    std::string packet(VEK_FRAME_MAX, '\0');
    packet.resize(static_cast<size_t>(::recv(to.Get(), packet.data(), packet.size(), 0)));
    return packet;
}

std::string ProblemOf(const std::string& packet) {
    VekFrameHead head = {};
    const char* problem = DecodeBusFrame(packet.data(), packet.size(), head);
    return problem == nullptr ? "" : problem;
}

struct Example {
    const char* what;
    VekFrameHead head;
    const char* payload;
    const char* bytes;
};

// The examples of docs/resource-bus.md.
const Example kExamples[] = {
    {"open", {VEK_OPEN, VEK_VERSION, 0, 0}, "", "01 00 00 00  01 00 00 00  00 00 00 00  00 00 00 00"},
    {"opened, 5 s for a request",
     {VEK_OPEN | VEK_ANSWER, 5000, 0, 0},
     "",
     "01 01 00 00  88 13 00 00  00 00 00 00  00 00 00 00"},
    {"refused: EACCES", {VEK_OPEN | VEK_ERROR, 0, 0, -13}, "", "01 02 00 00  00 00 00 00  00 00 00 00  f3 ff ff ff"},
    {"request 6 with a buffer of 3 bytes and 9 s",
     {VEK_IOCTL, 6, 3, 9000},
     "00 00 00",
     "02 00 00 00  06 00 00 00  03 00 00 00  28 23 00 00  00 00 00"},
    {"its answer: result 10, buffer `1#a`",
     {VEK_IOCTL | VEK_ANSWER, 6, 3, 10},
     "31 23 61",
     "02 01 00 00  06 00 00 00  03 00 00 00  0a 00 00 00  31 23 61"},
    {"out of time", {VEK_IOCTL | VEK_ERROR, 6, 0, -110}, "", "02 02 00 00  06 00 00 00  00 00 00 00  92 ff ff ff"},
    {"read 16 bytes at 0, with the service's time",
     {VEK_READ, 16, 8, 0},
     "00 00 00 00 00 00 00 00",
     "03 00 00 00  10 00 00 00  08 00 00 00  00 00 00 00  00 00 00 00 00 00 00 00"},
    {"read: `hi`, go on at 2",
     {VEK_READ | VEK_ANSWER, 16, 10, 2},
     "02 00 00 00 00 00 00 00 68 69",
     "03 01 00 00  10 00 00 00  0a 00 00 00  02 00 00 00  02 00 00 00 00 00 00 00  68 69"},
    {"send me events", {VEK_QUEUE, 0, 0, 0}, "", "04 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"},
    {"pool 1: 64 blocks of 64 bytes",
     {VEK_POOL, 1, 8, 0},
     "40 00 00 00 40 00 00 00",
     "10 00 00 00  01 00 00 00  08 00 00 00  00 00 00 00  40 00 00 00  40 00 00 00"},
    {"event: 1 byte in block 3 of pool 1",
     {VEK_EVENT, 1, 8, 0},
     "03 00 00 00 01 00 00 00",
     "11 00 00 00  01 00 00 00  08 00 00 00  00 00 00 00  03 00 00 00  01 00 00 00"},
    {"block 3 of pool 1 was read",
     {VEK_RETURN, 1, 4, 0},
     "03 00 00 00",
     "05 00 00 00  01 00 00 00  04 00 00 00  00 00 00 00  03 00 00 00"},
};

TEST(BusFrame, ExamplesAreSentAndReadByteForByte) {
    for (const Example& example : kExamples) {
        const std::string packet = Bytes(example.bytes);
        EXPECT_EQ(Sent(example.head, Bytes(example.payload)), packet) << example.what;
        VekFrameHead head = {};
        EXPECT_EQ(DecodeBusFrame(packet.data(), packet.size(), head), nullptr) << example.what;
        EXPECT_EQ(head.op, example.head.op) << example.what;
        EXPECT_EQ(head.cmd, example.head.cmd) << example.what;
        EXPECT_EQ(head.size, example.head.size) << example.what;
        EXPECT_EQ(head.rc, example.head.rc) << example.what;
    }
}

TEST(BusFrame, ExamplesStandInTheDocumentation) {
    std::ifstream file(RESOURCE_BUS_PAGE);
    const std::string page{std::istreambuf_iterator<char>(file), {}};
    for (const Example& example : kExamples) {
        EXPECT_NE(page.find(std::string("| ") + example.what + " | `" + example.bytes + "` |"), std::string::npos)
            << example.what;
    }
}

TEST(BusFrame, WhatIsNotExactlyAFrameIsRefused) {
    const std::string good = Bytes(kExamples[3].bytes);
    for (size_t size = 0; size < VEK_FRAME_HEAD_SIZE; ++size) {
        EXPECT_EQ(ProblemOf(good.substr(0, size)), "frame is shorter than its head") << size;
    }
    EXPECT_EQ(ProblemOf(good.substr(0, good.size() - 1)), "size in the frame's head is not the size of its payload");
    EXPECT_EQ(ProblemOf(good + "x"), "size in the frame's head is not the size of its payload");
    EXPECT_EQ(ProblemOf(std::string(VEK_FRAME_MAX + 1, '\0')), "frame is over 64 KiB");
    std::string huge = good;
    huge.replace(8, 4, "\xff\xff\xff\xff");
    EXPECT_EQ(ProblemOf(huge), "size in the frame's head is not the size of its payload");
}

TEST(BusFrame, AFrameOf64KiBIsTheLargest) {
    std::string packet(VEK_FRAME_MAX, '\0');
    packet.replace(8, 4, std::string("\xf0\xff\x00\x00", 4));
    EXPECT_EQ(ProblemOf(packet), "");
}

}  // namespace
