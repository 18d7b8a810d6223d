#include "platform/posix/tunor/server_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "platform/posix/tunor/tunor_socket.h"

namespace ProcMgr {

bool ServerConnection::Send(std::string frame, size_t limit) {
    if (queue_.empty()) {
        const int sent = SendPacket(Fd(), frame, MSG_DONTWAIT);
        if (sent != -EAGAIN && sent != -ENOBUFS) {
            // A client that is gone is noticed where it is read from.
            return true;
        }
    }
    if (frame.size() > limit - queuedBytes_) {
        return false;
    }
    queuedBytes_ += frame.size();
    queue_.push_back(std::move(frame));
    return true;
}

void ServerConnection::Flush() {
    while (!queue_.empty()) {
        const int sent = SendPacket(Fd(), queue_.front(), MSG_DONTWAIT);
        if (sent == -EAGAIN || sent == -ENOBUFS) {
            return;
        }
        queuedBytes_ -= queue_.front().size();
        queue_.pop_front();
    }
}

void ServerConnection::Doom(const char* reason) {
    doomReason_ = reason;
    queue_.clear();
    queuedBytes_ = 0;
    ::shutdown(Fd(), SHUT_RDWR);
}

bool ServerConnection::IsPeerGone() const {
    pollfd entry = {Fd(), 0, 0};
    return ::poll(&entry, 1, 0) > 0 && (entry.revents & POLLHUP) != 0;
}

uint32_t ServerConnection::NextSeq() {
    ++lastSeq_;
    if (lastSeq_ == 0) {
        lastSeq_ = 1;
    }
    return lastSeq_;
}

}  // namespace ProcMgr
