#include "platform/posix/tunor/tunor_socket.h"

#include <fcntl.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ProcMgr {

namespace {

constexpr const char* kDefaultRunDirectory = "/run/procmgr";
constexpr int kFirstPlainDescriptor = 3;

// An end that went away without reading everything leaves a reset in front of what it had sent; one more look gets
// that.
ssize_t ReceivePacket(int fd, msghdr& message, int flags) {
    ssize_t size = 0;
    bool sawReset = false;
    do {
        size = ::recvmsg(fd, &message, flags);
        if (size < 0 && errno == ECONNRESET && !sawReset) {
            sawReset = true;
            size = ::recvmsg(fd, &message, flags);
        }
    } while (size < 0 && errno == EINTR);
    return size;
}

bool WouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

std::string RunDirectory() {
    const char* value = std::getenv("PROCMGR_RUN_DIR");
    return value != nullptr && value[0] != '\0' ? value : kDefaultRunDirectory;
}

bool MakeSocketAddress(const std::string& path, sockaddr_un& address) {
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

UniqueFd MakePipeSocket() {
    UniqueFd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (fd && fd.Get() < kFirstPlainDescriptor) {
        // A process that closed its standard streams would otherwise get 0, which is no valid result of an open.
        return UniqueFd(::fcntl(fd.Get(), F_DUPFD_CLOEXEC, kFirstPlainDescriptor));
    }
    return fd;
}

bool ReadPeerCredentials(int fd, ucred& credentials) {
    socklen_t length = sizeof(credentials);
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0 && length == sizeof(credentials);
}

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
    iovec part = {buffer.bytes.data(), buffer.bytes.size()};
    // Without room for control data the kernel itself closes the descriptors that came along, and says so.
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t size = ReceivePacket(fd, message, flags | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return WouldBlock(errno) ? ReceiveResult::EMPTY : ReceiveResult::END;
    }
    if (size == 0) {
        return ReceiveResult::END;
    }
    if ((message.msg_flags & MSG_TRUNC) != 0) {
        buffer.problem = "frame is over 64 KiB";
        return ReceiveResult::BROKEN;
    }
    if ((message.msg_flags & MSG_CTRUNC) != 0) {
        return ReceiveResult::DROPPED;
    }
    buffer.problem = DecodeFrame(buffer.bytes.data(), static_cast<size_t>(size), buffer.frame);
    return buffer.problem == nullptr ? ReceiveResult::FRAME : ReceiveResult::BROKEN;
}

}  // namespace ProcMgr
