/// Sockets of the pipe: one frame sent or received at a time. No operation raises SIGPIPE;
/// descriptors that a stranger attached to a frame are never installed in this process.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_SOCKET_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_SOCKET_H

#include <string>
#include <vector>

#include "platform/posix/common_posix/packet_socket.h"
#include "platform/posix/tunor/tunor_frame.h"

namespace ProcMgr {

/// Sends head and payload as one packet. Returns 0 or a negative errno; -EAGAIN when the socket takes no more now (with
/// MSG_DONTWAIT in `flags`) or within the socket's send time-out.
int SendFrame(int fd, const FrameHead& head, const void* payload, int flags);

/// As SendFrame, for a frame that is already encoded.
int SendPacket(int fd, const std::string& packet, int flags);

enum class ReceiveResult {
    FRAME,    ///< `frame` is valid until the next receive with this buffer
    DROPPED,  ///< a frame came with descriptors and is gone, as they are
    EMPTY,    ///< nothing there now (MSG_DONTWAIT only)
    END,      ///< the other end is gone
    BROKEN,   ///< what came is no frame; `problem` says why
};

struct ReceiveBuffer {
    ReceiveBuffer() : bytes(kFrameMax) {}
    std::vector<char> bytes;
    FrameView frame;
    const char* problem = nullptr;
};

ReceiveResult ReceiveFrame(int fd, ReceiveBuffer& buffer, int flags);

}  // namespace ProcMgr

#endif
