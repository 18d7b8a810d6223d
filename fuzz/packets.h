/// The other end of a socket of packets, which sends what it likes; and a look at the descriptors of this process.
#ifndef PROCMGR_FUZZ_PACKETS_H
#define PROCMGR_FUZZ_PACKETS_H

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <optional>
#include <string>

#include "fuzz/fuzz_input.h"
#include "platform/posix/common_posix/packet_socket.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Fuzz {

/// How many descriptors this process has. A target whose reader leaves one open needs no more than the first hundred.
inline int OpenDescriptors() {
    constexpr int kMost = 100;
    int count = 0;
    for (int fd = 0; fd < kMost; ++fd) {
        count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

/// The fuzzer's own alarm interrupts whoever waits.
template <typename Call>
auto Uninterrupted(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Whoever waits half a minute has found a hang.
inline void LimitWaiting(int fd) {
    const timeval patience = {30, 0};
    Require(::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) == 0);
}

inline ProcMgr::UniqueFd ConnectTo(const std::string& path) {
    sockaddr_un address = {};
    Require(ProcMgr::MakeSocketAddress(path, address));
    ProcMgr::UniqueFd fd = ProcMgr::MakePacketSocket();
    Require(Uninterrupted([&] {
                return ::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
            }) == 0);
    LimitWaiting(fd.Get());
    return fd;
}

/// Up to two descriptors come along. False when the other end is gone.
inline bool SendPacket(int fd, const std::string& packet, std::initializer_list<int> attached = {}) {
    iovec part = {const_cast<char*>(packet.data()), packet.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (attached.size() > 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(attached.size() * sizeof(int));
        cmsghdr* head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(attached.size() * sizeof(int));
        std::memcpy(CMSG_DATA(head), attached.begin(), attached.size() * sizeof(int));
    }
    const ssize_t sent = Uninterrupted([&] { return ::sendmsg(fd, &message, MSG_NOSIGNAL); });
    Require(sent >= 0 || errno == EPIPE || errno == ECONNRESET);
    return sent >= 0;
}

/// The next packet; none when the other end is gone. Descriptors that come along are closed by the kernel.
inline std::optional<std::string> ReceivePacket(int fd) {
    static thread_local char bytes[128 * 1024];
    const auto receive = [&] { return ::recv(fd, bytes, sizeof(bytes), 0); };
    ssize_t got = Uninterrupted(receive);
    if (got < 0 && errno == ECONNRESET) {
        got = Uninterrupted(receive);
    }
    Require(got >= 0 || errno == ECONNRESET);
    return got <= 0 ? std::nullopt : std::optional<std::string>(std::string(bytes, static_cast<size_t>(got)));
}

}  // namespace Fuzz

#endif
