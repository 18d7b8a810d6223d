/// The way to an open pipe: find the peer's socket, wait for it, check who serves it, say hello.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_CONNECT_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_CONNECT_H

#include <chrono>
#include <string>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

/// PROC_NAME, or the base name of the running program.
std::string OwnNameForHello();

/// Tries until `timeout` has passed while the peer is not there. Returns 0 with a blocking socket in `fd`, or a
/// negative errno.
[[nodiscard]] int ConnectPipe(const std::string& peerName, std::chrono::milliseconds timeout, UniqueFd& fd);

}  // namespace ProcMgr

#endif
