/// Unix SOCK_SEQPACKET sockets under the run directory, and packets received from strangers. No operation raises
/// SIGPIPE; descriptors that a stranger attached to a packet are never installed in this process.
#ifndef PROCMGR_PLATFORM_POSIX_PACKET_SOCKET_H
#define PROCMGR_PLATFORM_POSIX_PACKET_SOCKET_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <string>
#include <vector>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

/// PROCMGR_RUN_DIR, or /run/procmgr.
std::string RunDirectory();

/// True for 1 to `sizeMax` bytes without a control character or '/'.
[[nodiscard]] bool IsSocketName(const std::string& name, size_t sizeMax);

/// False when the path is empty or does not fit.
[[nodiscard]] bool MakeSocketAddress(const std::string& path, sockaddr_un& address);

/// A close-on-exec SOCK_SEQPACKET socket whose number is above those of the standard streams; none with errno.
UniqueFd MakePacketSocket();

/// The other end's credentials: of a client at its connect, of a server at its listen.
[[nodiscard]] bool ReadPeerCredentials(int fd, ucred& credentials);

/// The supplementary groups that belong to those credentials. False when the kernel does not tell.
[[nodiscard]] bool ReadPeerGroups(int fd, std::vector<gid_t>& groups);

enum class PacketResult {
    PACKET,
    EMPTY,     ///< nothing there now (MSG_DONTWAIT only)
    END,       ///< the other end is gone; an empty packet looks the same
    TOO_LONG,  ///< a packet that did not fit is gone
    WITH_FDS,  ///< a packet came with descriptors and is gone, as they are
};

/// Takes the next packet; `size` is written for PACKET only.
PacketResult ReceivePacket(int fd, void* buffer, size_t capacity, int flags, size_t& size);

}  // namespace ProcMgr

#endif
