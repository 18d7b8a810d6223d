#include "platform/posix/tunor/tunor_socket.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>

namespace ProcMgr {

int SendFrame(int fd, const FrameHead& head, const void* payload, int flags) {
    unsigned char headBytes[kFrameHeadSize];
    EncodeFrameHead(head, headBytes);
    iovec parts[2] = {{headBytes, kFrameHeadSize}, {const_cast<void*>(payload), head.size}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = head.size > 0 ? 2 : 1;
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(fd, &message, flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : 0;
}

int SendPacket(int fd, const std::string& packet, int flags) {
    ssize_t sent = 0;
    do {
        sent = ::send(fd, packet.data(), packet.size(), flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : 0;
}

ReceiveResult ReceiveFrame(int fd, ReceiveBuffer& buffer, int flags) {
    size_t size = 0;
    switch (ReceivePacket(fd, buffer.bytes.data(), buffer.bytes.size(), flags, size)) {
        case PacketResult::EMPTY:
            return ReceiveResult::EMPTY;
        case PacketResult::END:
            return ReceiveResult::END;
        case PacketResult::TOO_LONG:
            buffer.problem = "frame is over 64 KiB";
            return ReceiveResult::BROKEN;
        case PacketResult::WITH_FDS:
            return ReceiveResult::DROPPED;
        case PacketResult::PACKET:
            break;
    }
    buffer.problem = DecodeFrame(buffer.bytes.data(), size, buffer.frame);
    return buffer.problem == nullptr ? ReceiveResult::FRAME : ReceiveResult::BROKEN;
}

}  // namespace ProcMgr
