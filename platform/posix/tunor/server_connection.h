/// One connection of the server: its socket, and the frames that its client has not taken yet.
#ifndef PROCMGR_PLATFORM_POSIX_SERVER_CONNECTION_H
#define PROCMGR_PLATFORM_POSIX_SERVER_CONNECTION_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

#include "platform/posix/common_posix/unique_fd.h"
#include "platform/posix/tunor/tunor_server.h"

namespace ProcMgr {

class ServerConnection {
public:
    ServerConnection(UniqueFd fd, TunorPeer peer) : fd_(std::move(fd)), peer(std::move(peer)) {}

    int Fd() const { return fd_.Get(); }

    /// Sends the frame behind those that wait, or lets it wait. False when the queue would pass `limit`.
    [[nodiscard]] bool Send(std::string frame, size_t limit);
    /// Sends what the socket takes.
    void Flush();
    bool HasQueue() const { return !queue_.empty(); }
    size_t QueuedBytes() const { return queuedBytes_; }

    /// Ends it at the owner's next turn, with this reason; nothing is sent or read any more.
    void Doom(const char* reason);
    const char* DoomReason() const { return doomReason_; }

    /// The client is gone, though frames of it may still wait to be read.
    bool IsPeerGone() const;

    uint32_t NextSeq();

private:
    UniqueFd fd_;
    std::deque<std::string> queue_;
    size_t queuedBytes_ = 0;
    const char* doomReason_ = nullptr;
    uint32_t lastSeq_ = 0;

public:
    // The server's own notes about it.
    TunorPeer peer;
    bool isOpen = false;
    bool isWatchedForWriting = false;
    bool unknownKindLogged = false;
    std::chrono::steady_clock::time_point helloDeadline;
};

}  // namespace ProcMgr

#endif
