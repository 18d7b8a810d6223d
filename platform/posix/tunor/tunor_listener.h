/// The listening socket of a peer, and the lock that makes it the only one of its name in its run directory.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_LISTENER_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_LISTENER_H

#include <string>

#include "platform/posix/tunor/unique_fd.h"

namespace ProcMgr {

class TunorListener {
public:
    TunorListener() = default;
    /// Removes the socket file, if Open() made one.
    ~TunorListener();
    TunorListener(const TunorListener&) = delete;
    TunorListener& operator=(const TunorListener&) = delete;

    /// As TunorServer::Listen. The socket is non-blocking.
    [[nodiscard]] bool Open(const std::string& runDir, const std::string& peerName, std::string& error);

    int Fd() const { return fd_.Get(); }

private:
    bool TakeLock(const std::string& path, std::string& error);
    bool Bind(const std::string& path, std::string& error);

    UniqueFd lock_;
    UniqueFd fd_;
    std::string path_;  // of the socket that is ours to remove
};

}  // namespace ProcMgr

#endif
