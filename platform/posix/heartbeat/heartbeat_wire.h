/// A beat is one datagram, "procmgr 1 beat " and the sender's name, at the address of whoever watches:
/// <run dir>/heartbeat/<watcher>.sock. Who sent it is what the kernel says, never what the datagram says.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_WIRE_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_WIRE_H

#include <sys/un.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace ProcMgr::Posix {

inline constexpr size_t kHeartBeatNameMax = 256;

/// The longest datagram that can be a beat.
inline constexpr size_t kBeatMax = 15 + kHeartBeatNameMax;

/// `name`: 1 to kHeartBeatNameMax bytes of any value.
std::string BeatText(std::string_view name);

/// The name in a beat; empty when the text is none.
std::string_view ReadBeat(std::string_view text);

std::string HeartBeatDirectory(const std::string& runDirectory);

/// The path of a watcher's address. Bytes that a file name had better not have stand as %XX in it.
std::string HeartBeatPath(const std::string& runDirectory, std::string_view watcher);

/// False when the path is too long for an address.
[[nodiscard]] bool MakeAddress(const std::string& path, sockaddr_un& address);

}  // namespace ProcMgr::Posix

#endif
