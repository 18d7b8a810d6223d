/// A listening Unix SOCK_SEQPACKET socket <folder>/<name>.sock, and the lock <folder>/<name>.lock that makes it the
/// only one of its name there.
///
/// The lock is held as long as the listener lives, and is the only proof of life: who gets it removes what a dead
/// server left of the socket. The lock file is never removed. The socket's mode is 0666: who may come in is decided by
/// credentials, not by the file.
#ifndef PROCMGR_PLATFORM_POSIX_PACKET_LISTENER_H
#define PROCMGR_PLATFORM_POSIX_PACKET_LISTENER_H

#include <string>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

/// Makes the folder (0755) when its parent exists. It must belong to root or to the own user and be writable by nobody
/// else, sticky or not: elsewhere a stranger could put up what we expect to find. Nothing that lies in the folder is to
/// be believed before this was asked.
/// Returns 0, or an errno with a sentence in `error`.
[[nodiscard]] int PrepareRunDirectory(const std::string& folder, std::string& error);

class PacketListener {
public:
    PacketListener() = default;
    /// Removes the socket file, if Open() made one.
    ~PacketListener();
    PacketListener(const PacketListener&) = delete;
    PacketListener& operator=(const PacketListener&) = delete;

    /// Prepares the folder and listens; the socket is non-blocking. `who` says in the error what is already running
    /// when the name is taken (EADDRINUSE). Returns 0, or an errno with a sentence in `error`. The name is the caller's
    /// to have tested. Call it at most once with success.
    [[nodiscard]] int Open(const std::string& folder, const std::string& name, const std::string& who,
                           std::string& error);

    int Fd() const { return fd_.Get(); }

private:
    int TakeLock(const std::string& path, const std::string& who, std::string& error);
    int Bind(const std::string& path, std::string& error);

    UniqueFd lock_;
    UniqueFd fd_;
    std::string path_;  // of the socket that is ours to remove
};

}  // namespace ProcMgr

#endif
