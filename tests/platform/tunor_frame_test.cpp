#include "platform/posix/tunor/tunor_frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

using ProcMgr::AppReport;
using ProcMgr::DecodeFrame;
using ProcMgr::EncodeFrame;
using ProcMgr::FrameKind;
using ProcMgr::FrameView;

namespace {

// The numbers of these literals are little-endian, as on every machine that the tests run on.
template <size_t N>
std::string Bytes(const char (&literal)[N]) {
    return std::string(literal, N - 1);
}

std::string HelloOfGrpOwner() {
    return Bytes(
        "\x01\0\0\0\0\0\0\0\x08\0\0\0\0\0\0\0"
        "GrpOwner");
}

FrameView Decoded(const std::string& packet) {
    FrameView frame;
    EXPECT_EQ(DecodeFrame(packet.data(), packet.size(), frame), nullptr);
    return frame;
}

std::string ProblemOf(const std::string& packet) {
    FrameView frame;
    const char* problem = DecodeFrame(packet.data(), packet.size(), frame);
    return problem == nullptr ? "" : problem;
}

std::string ReportPayload(const std::string& head, const std::string& name) {
    return head + name;
}

bool IsReport(const std::string& payload) {
    AppReport report;
    return ProcMgr::DecodeAppReport(payload.data(), payload.size(), report);
}

}  // namespace

TEST(PipeFrame, HelloCarriesTheOwnersName) {
    EXPECT_EQ(EncodeFrame(FrameKind::HELLO, 0, "GrpOwner", 8), HelloOfGrpOwner());
    std::string name;
    const std::string packet = HelloOfGrpOwner();
    ASSERT_TRUE(ProcMgr::DecodeHello(Decoded(packet), name));
    EXPECT_EQ(name, "GrpOwner");
}

TEST(PipeFrame, HelloAnswerCarriesZeroOrTheErrno) {
    EXPECT_EQ(ProcMgr::EncodeHelloAnswer(0), Bytes("\x02\0\0\0\0\0\0\0\x04\0\0\0\0\0\0\0"
                                                   "\0\0\0\0"));
    const std::string refusal = Bytes(
        "\x02\0\0\0\0\0\0\0\x04\0\0\0\0\0\0\0"
        "\x0d\0\0\0");
    EXPECT_EQ(ProcMgr::EncodeHelloAnswer(EACCES), refusal);
    int error = -1;
    ASSERT_TRUE(ProcMgr::DecodeHelloAnswer(Decoded(refusal), error));
    EXPECT_EQ(error, EACCES);
}

TEST(PipeFrame, CallAndAnswerShareTheirNumber) {
    EXPECT_EQ(EncodeFrame(FrameKind::CALL, 7, "hi", 2), Bytes("\x04\0\0\0\x07\0\0\0\x02\0\0\0\0\0\0\0"
                                                              "hi"));
    EXPECT_EQ(EncodeFrame(FrameKind::ANSWER, 7, "0#", 2), Bytes("\x05\0\0\0\x07\0\0\0\x02\0\0\0\0\0\0\0"
                                                                "0#"));
}

TEST(PipeFrame, RequestMayBeEmpty) {
    const std::string packet = Bytes("\x03\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0");
    EXPECT_EQ(EncodeFrame(FrameKind::REQUEST, 1, nullptr, 0), packet);
    EXPECT_EQ(Decoded(packet).head.size, 0U);
}

TEST(PipeFrame, AppReportCarriesPidStateAndName) {
    const std::string payload = Bytes(
        "\x67\x12\0\0\x01\0\0\0\x03\0\0\0"
        "cam");
    EXPECT_EQ(ProcMgr::EncodeAppReport({"cam", 4711, 1}), payload);
    EXPECT_EQ(EncodeFrame(FrameKind::APP_REPORT, 0, payload.data(), payload.size()),
              Bytes("\x06\0\0\0\0\0\0\0\x0f\0\0\0\0\0\0\0"
                    "\x67\x12\0\0\x01\0\0\0\x03\0\0\0"
                    "cam"));
    AppReport report;
    ASSERT_TRUE(ProcMgr::DecodeAppReport(payload.data(), payload.size(), report));
    EXPECT_EQ(report.name, "cam");
    EXPECT_EQ(report.pid, 4711);
    EXPECT_EQ(report.state, 1U);
}

TEST(PipeFrame, UnknownKindIsNoErrorOfTheFrame) {
    EXPECT_EQ(ProblemOf(Bytes("\x63\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0")), "");
    EXPECT_EQ(ProblemOf(Bytes("\xff\xff\xff\xff\0\0\0\0\0\0\0\0\0\0\0\0")), "");
}

TEST(PipeFrame, FrameShorterThanItsHeadIsRefusedAtEveryLength) {
    for (size_t size = 0; size < ProcMgr::kFrameHeadSize; ++size) {
        EXPECT_EQ(ProblemOf(HelloOfGrpOwner().substr(0, size)), "frame is shorter than its head");
    }
}

TEST(PipeFrame, TruncatedPayloadIsRefusedAtEveryLength) {
    for (size_t size = ProcMgr::kFrameHeadSize; size < HelloOfGrpOwner().size(); ++size) {
        EXPECT_EQ(ProblemOf(HelloOfGrpOwner().substr(0, size)),
                  "size in the frame's head is not the size of its payload");
    }
}

TEST(PipeFrame, SizeThatDoesNotFitThePayloadIsRefused) {
    EXPECT_EQ(ProblemOf(HelloOfGrpOwner() + "x"), "size in the frame's head is not the size of its payload");
    EXPECT_EQ(ProblemOf(Bytes("\x03\0\0\0\0\0\0\0\xff\xff\xff\xff\0\0\0\0")),
              "size in the frame's head is not the size of its payload");
}

TEST(PipeFrame, ReservedNumberMustBeZero) {
    EXPECT_EQ(ProblemOf(Bytes("\x03\0\0\0\0\0\0\0\0\0\0\0\x01\0\0\0")), "reserved number of the frame is not 0");
}

TEST(PipeFrame, SixtyFourKibibytesAreTheLimitOfAFrame) {
    const std::string payload(65520, 'a');
    const std::string largest = EncodeFrame(FrameKind::REQUEST, 0, payload.data(), payload.size());
    EXPECT_EQ(largest.size(), 65536U);
    EXPECT_EQ(ProblemOf(largest), "");
    EXPECT_EQ(ProblemOf(largest + "a"), "frame is over 64 KiB");
    EXPECT_EQ(EncodeFrame(FrameKind::REQUEST, 0, (payload + "a").data(), 65521), "");
}

TEST(PipeFrame, HelloNeedsAUsableName) {
    std::string name = "untouched";
    for (const std::string& bad : {std::string(), std::string(129, 'a'), std::string("a/b"), std::string("a\nb"),
                                   std::string("a\0b", 3), std::string("a\x7f")}) {
        const std::string packet = EncodeFrame(FrameKind::HELLO, 0, bad.data(), bad.size());
        EXPECT_FALSE(ProcMgr::DecodeHello(Decoded(packet), name));
    }
    EXPECT_EQ(name, "untouched");
    const std::string longest = EncodeFrame(FrameKind::HELLO, 0, std::string(128, 'a').data(), 128);
    EXPECT_TRUE(ProcMgr::DecodeHello(Decoded(longest), name));
}

TEST(PipeFrame, FrameOfAnotherKindIsNoHello) {
    std::string name;
    const std::string packet = EncodeFrame(FrameKind::REQUEST, 0, "GrpOwner", 8);
    EXPECT_FALSE(ProcMgr::DecodeHello(Decoded(packet), name));
}

TEST(PipeFrame, HelloAnswerOfAnotherSizeOrSignIsRefused) {
    int error = 5;
    for (const std::string& payload : {Bytes("\0\0\0"), Bytes("\0\0\0\0\0"), Bytes("\xff\xff\xff\xff")}) {
        const std::string packet = EncodeFrame(FrameKind::HELLO_ANSWER, 0, payload.data(), payload.size());
        EXPECT_FALSE(ProcMgr::DecodeHelloAnswer(Decoded(packet), error));
    }
    EXPECT_EQ(error, 5);
}

TEST(PipeFrame, AppBeatCarriesPidGidAndName) {
    const std::string payload = Bytes(
        "\x67\x12\0\0\xfe\xff\0\0\x03\0\0\0"
        "cam");
    EXPECT_EQ(ProcMgr::EncodeAppBeat({"cam", 4711, 65534}), payload);
    EXPECT_EQ(EncodeFrame(FrameKind::APP_BEAT, 0, payload.data(), payload.size()),
              Bytes("\x07\0\0\0\0\0\0\0\x0f\0\0\0\0\0\0\0"
                    "\x67\x12\0\0\xfe\xff\0\0\x03\0\0\0"
                    "cam"));
    ProcMgr::AppBeat beat;
    ASSERT_TRUE(ProcMgr::DecodeAppBeat(payload.data(), payload.size(), beat));
    EXPECT_EQ(beat.name, "cam");
    EXPECT_EQ(beat.pid, 4711U);
    EXPECT_EQ(beat.gid, 65534U);
}

TEST(PipeFrame, AppBeatWithoutANameIsTheServersOwn) {
    const std::string payload = ProcMgr::EncodeAppBeat({});
    EXPECT_EQ(payload, std::string(12, '\0'));
    ProcMgr::AppBeat beat{"before", 1, 1};
    ASSERT_TRUE(ProcMgr::DecodeAppBeat(payload.data(), payload.size(), beat));
    EXPECT_EQ(beat.name, "");
}

TEST(PipeFrame, MalformedAppBeatsAreRefused) {
    const std::string good = ProcMgr::EncodeAppBeat({"cam", 1, 0});
    ProcMgr::AppBeat beat;
    for (size_t size = 0; size < good.size(); ++size) {
        EXPECT_FALSE(ProcMgr::DecodeAppBeat(good.data(), size, beat)) << size;
    }
    const std::string longer = good + "x";
    EXPECT_FALSE(ProcMgr::DecodeAppBeat(longer.data(), longer.size(), beat));
    const std::string huge = Bytes("\x01\0\0\0\0\0\0\0\xff\xff\xff\xff") + "cam";
    EXPECT_FALSE(ProcMgr::DecodeAppBeat(huge.data(), huge.size(), beat));
    EXPECT_EQ(ProcMgr::EncodeAppBeat({std::string(4097, 'a'), 1, 0}), "");
}

TEST(PipeFrame, MalformedAppReportsAreRefused) {
    const std::string good = ProcMgr::EncodeAppReport({"cam", 1, 0});
    for (size_t size = 0; size < good.size(); ++size) {
        EXPECT_FALSE(IsReport(good.substr(0, size))) << size;
    }
    EXPECT_FALSE(IsReport(good + "x"));
    EXPECT_FALSE(IsReport(ReportPayload(Bytes("\x01\0\0\0\0\0\0\0\xff\xff\xff\xff"), "cam")));
    EXPECT_FALSE(IsReport(ReportPayload(Bytes("\x01\0\0\0\x02\0\0\0\x03\0\0\0"), "cam")));
    EXPECT_FALSE(IsReport(ReportPayload(Bytes("\xff\xff\xff\xff\0\0\0\0\x03\0\0\0"), "cam")));
    EXPECT_FALSE(IsReport(ReportPayload(Bytes("\x01\0\0\0\0\0\0\0\0\0\0\0"), "")));
    EXPECT_EQ(ProcMgr::EncodeAppReport({"", 1, 0}), "");
    EXPECT_EQ(ProcMgr::EncodeAppReport({std::string(4097, 'a'), 1, 0}), "");
}
