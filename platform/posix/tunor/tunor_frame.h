/// The frames of the pipe: one packet of a Unix SOCK_SEQPACKET socket is one frame, a head of four numbers and the
/// payload behind it. docs/pipe.md has the grammar and worked examples.
///
/// Everything here is pure. A reader takes whatever a stranger may have sent: each length is tested before it is used,
/// and a frame that is not exactly right is refused as a whole.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_FRAME_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_FRAME_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/posix/common_posix/app_beat.h"

namespace ProcMgr {

/// What a frame is. A number outside the list is a legal value that nobody handles.
enum class FrameKind : uint32_t {
    HELLO = 1,         ///< client: the owner's name
    HELLO_ANSWER = 2,  ///< server: int32, 0 or the errno of the refusal
    REQUEST = 3,       ///< both: one-way request
    CALL = 4,          ///< client: request that is answered
    ANSWER = 5,        ///< both: answer, under the number of what it answers
    APP_REPORT = 6,    ///< server: what a self-reporting application said of itself
    APP_BEAT = 7,      ///< server: an application's heart beat, or, without a name, the server's own
};

inline constexpr size_t kFrameHeadSize = 16;
inline constexpr size_t kFrameMax = size_t{64} * 1024;  ///< head and payload together, in bytes
inline constexpr size_t kFramePayloadMax = kFrameMax - kFrameHeadSize;
inline constexpr size_t kOwnerNameMax = 128;  ///< bytes of the name in a hello
inline constexpr size_t kAppNameMax = 4096;   ///< bytes of the name in an application report or beat

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pipe frames are host order, little-endian");

struct FrameHead {
    FrameKind kind = FrameKind::REQUEST;
    uint32_t seq = 0;
    uint32_t size = 0;  ///< bytes of payload
};

/// A frame as it was received; `payload` points into the receiver's buffer.
struct FrameView {
    FrameHead head;
    const char* payload = nullptr;
};

struct AppReport {
    std::string name;
    int pid = 0;
    uint32_t state = 0;  ///< 0 on, 1 off
};

/// Writes the head into 16 bytes. The payload's size is the caller's to have tested against kFramePayloadMax.
void EncodeFrameHead(const FrameHead& head, unsigned char (&out)[kFrameHeadSize]);

/// The whole frame; empty when the payload is over kFramePayloadMax. `payload` may be null when `size` is 0.
std::string EncodeFrame(FrameKind kind, uint32_t seq, const void* payload, size_t size);

/// Reads one packet of `size` bytes. Returns null, or what is wrong with it; `frame` is written only on success.
/// An unknown kind is not an error here.
const char* DecodeFrame(const void* packet, size_t size, FrameView& frame);

std::string EncodeHelloAnswer(int error);
[[nodiscard]] bool DecodeHelloAnswer(const FrameView& frame, int& error);

/// Name of a hello: 1 to kOwnerNameMax bytes, no control character, no '/'.
[[nodiscard]] bool DecodeHello(const FrameView& frame, std::string& name);
[[nodiscard]] bool IsPeerName(const std::string& name);

/// Payload of an application report; empty when the name is empty or over kAppNameMax.
std::string EncodeAppReport(const AppReport& report);
[[nodiscard]] bool DecodeAppReport(const void* payload, size_t size, AppReport& report);

/// Payload of a beat; empty when the name is over kAppNameMax.
std::string EncodeAppBeat(const AppBeat& beat);
[[nodiscard]] bool DecodeAppBeat(const void* payload, size_t size, AppBeat& beat);

}  // namespace ProcMgr

#endif
