#include "platform/posix/tunor/tunor_frame.h"

#include <cstring>

#include "platform/posix/common_posix/packet_socket.h"

namespace ProcMgr {

namespace {

constexpr size_t kAppReportHeadSize = 12;  // a beat's too

void AppendU32(std::string& out, uint32_t value) {
    char bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    out.append(bytes, sizeof(bytes));
}

uint32_t ReadU32(const void* data, size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, static_cast<const char*>(data) + offset, sizeof(value));
    return value;
}

}  // namespace

void EncodeFrameHead(const FrameHead& head, unsigned char (&out)[kFrameHeadSize]) {
    const uint32_t words[4] = {static_cast<uint32_t>(head.kind), head.seq, head.size, 0};
    static_assert(sizeof(words) == kFrameHeadSize, "the head is four numbers");
    std::memcpy(out, words, sizeof(words));
}

std::string EncodeFrame(FrameKind kind, uint32_t seq, const void* payload, size_t size) {
    if (size > kFramePayloadMax) {
        return {};
    }
    unsigned char head[kFrameHeadSize];
    EncodeFrameHead({kind, seq, static_cast<uint32_t>(size)}, head);
    std::string frame;
    frame.reserve(kFrameHeadSize + size);
    frame.append(reinterpret_cast<const char*>(head), kFrameHeadSize);
    if (size > 0) {
        frame.append(static_cast<const char*>(payload), size);
    }
    return frame;
}

const char* DecodeFrame(const void* packet, size_t size, FrameView& frame) {
    if (size > kFrameMax) {
        return "frame is over 64 KiB";
    }
    if (size < kFrameHeadSize) {
        return "frame is shorter than its head";
    }
    if (ReadU32(packet, 12) != 0) {
        return "reserved number of the frame is not 0";
    }
    const uint32_t payloadSize = ReadU32(packet, 8);
    if (payloadSize != size - kFrameHeadSize) {
        return "size in the frame's head is not the size of its payload";
    }
    frame.head = {static_cast<FrameKind>(ReadU32(packet, 0)), ReadU32(packet, 4), payloadSize};
    frame.payload = static_cast<const char*>(packet) + kFrameHeadSize;
    return nullptr;
}

std::string EncodeHelloAnswer(int error) {
    const auto number = static_cast<int32_t>(error);
    return EncodeFrame(FrameKind::HELLO_ANSWER, 0, &number, sizeof(number));
}

bool DecodeHelloAnswer(const FrameView& frame, int& error) {
    int32_t number = 0;
    if (frame.head.kind != FrameKind::HELLO_ANSWER || frame.head.size != sizeof(number)) {
        return false;
    }
    std::memcpy(&number, frame.payload, sizeof(number));
    if (number < 0) {
        return false;
    }
    error = number;
    return true;
}

bool IsPeerName(const std::string& name) {
    return IsSocketName(name, kOwnerNameMax);
}

bool DecodeHello(const FrameView& frame, std::string& name) {
    if (frame.head.kind != FrameKind::HELLO || frame.head.size > kOwnerNameMax) {
        return false;
    }
    std::string text(frame.payload, frame.head.size);
    if (!IsPeerName(text)) {
        return false;
    }
    name = std::move(text);
    return true;
}

std::string EncodeAppReport(const AppReport& report) {
    if (report.name.empty() || report.name.size() > kAppNameMax) {
        return {};
    }
    std::string payload;
    AppendU32(payload, static_cast<uint32_t>(report.pid));
    AppendU32(payload, report.state);
    AppendU32(payload, static_cast<uint32_t>(report.name.size()));
    payload += report.name;
    return payload;
}

bool DecodeAppReport(const void* payload, size_t size, AppReport& report) {
    if (size < kAppReportHeadSize) {
        return false;
    }
    const uint32_t nameSize = ReadU32(payload, 8);
    const uint32_t pid = ReadU32(payload, 0);
    const uint32_t state = ReadU32(payload, 4);
    const bool exact = nameSize == size - kAppReportHeadSize && nameSize <= kAppNameMax;
    if (!exact || nameSize == 0 || pid > INT32_MAX || state > 1) {
        return false;
    }
    report.name.assign(static_cast<const char*>(payload) + kAppReportHeadSize, nameSize);
    report.pid = static_cast<int>(pid);
    report.state = state;
    return true;
}

std::string EncodeAppBeat(const AppBeat& beat) {
    if (beat.name.size() > kAppNameMax) {
        return {};
    }
    std::string payload;
    AppendU32(payload, beat.pid);
    AppendU32(payload, beat.gid);
    AppendU32(payload, static_cast<uint32_t>(beat.name.size()));
    payload += beat.name;
    return payload;
}

bool DecodeAppBeat(const void* payload, size_t size, AppBeat& beat) {
    if (size < kAppReportHeadSize) {
        return false;
    }
    const uint32_t nameSize = ReadU32(payload, 8);
    if (nameSize != size - kAppReportHeadSize || nameSize > kAppNameMax) {
        return false;
    }
    beat.pid = ReadU32(payload, 0);
    beat.gid = ReadU32(payload, 4);
    beat.name.assign(static_cast<const char*>(payload) + kAppReportHeadSize, nameSize);
    return true;
}

}  // namespace ProcMgr
