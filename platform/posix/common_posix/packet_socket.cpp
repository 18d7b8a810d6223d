#include "platform/posix/common_posix/packet_socket.h"

#include <fcntl.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ProcMgr {

namespace {

constexpr const char* kDefaultRunDirectory = "/run/procmgr";
constexpr int kFirstPlainDescriptor = 3;

// An end that went away without reading everything leaves a reset in front of what it had sent; one more look gets
// that.
ssize_t ReceiveMessage(int fd, msghdr& message, int flags) {
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

bool IsNameByte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte != 0x7f && c != '/';
}

}  // namespace

std::string RunDirectory() {
    const char* value = std::getenv("PROCMGR_RUN_DIR");
    return value != nullptr && value[0] != '\0' ? value : kDefaultRunDirectory;
}

bool IsSocketName(const std::string& name, size_t sizeMax) {
    return !name.empty() && name.size() <= sizeMax && std::all_of(name.begin(), name.end(), IsNameByte);
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

UniqueFd MakePacketSocket() {
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

bool ReadPeerGroups(int fd, std::vector<gid_t>& groups) {
    // The first question is for the number: without room the kernel tells how much is needed.
    socklen_t length = 0;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, nullptr, &length) != 0 && errno != ERANGE) {
        return false;
    }
    std::vector<gid_t> all(length / sizeof(gid_t));
    if (length != 0 && ::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, all.data(), &length) != 0) {
        return false;
    }
    groups = std::move(all);
    return true;
}

PacketResult ReceivePacket(int fd, void* buffer, size_t capacity, int flags, size_t& size) {
    iovec part = {buffer, capacity};
    // Without room for control data the kernel itself closes the descriptors that came along, and says so.
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t received = ReceiveMessage(fd, message, flags | MSG_CMSG_CLOEXEC);
    if (received < 0) {
        return WouldBlock(errno) ? PacketResult::EMPTY : PacketResult::END;
    }
    if (received == 0) {
        return PacketResult::END;
    }
    if ((message.msg_flags & MSG_TRUNC) != 0) {
        return PacketResult::TOO_LONG;
    }
    if ((message.msg_flags & MSG_CTRUNC) != 0) {
        return PacketResult::WITH_FDS;
    }
    size = static_cast<size_t>(received);
    return PacketResult::PACKET;
}

}  // namespace ProcMgr
