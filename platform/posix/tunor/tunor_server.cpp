#include "platform/posix/tunor/tunor_server.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <system_error>

#include "platform/posix/tunor/tunor_log.h"
#include "platform/posix/tunor/tunor_server_impl.h"

namespace ProcMgr {

namespace {

// Beside the connections' numbers, which count up from 1.
constexpr uint64_t kListenerTag = UINT64_MAX;
constexpr uint64_t kTimerTag = UINT64_MAX - 1;

constexpr int kEventsPerTurn = 64;
constexpr int kFramesPerTurn = 64;

constexpr const char* kQueueFull = "it does not read: the frames that wait for it passed the limit";

}  // namespace

bool TunorServer::Impl::Listen(const std::string& runDir, const std::string& peerName, std::string& error) {
    if (!IsPeerName(peerName)) {
        error = "the peer's name is empty, too long or holds a '/' or a control character";
        return false;
    }
    if (listener_.Open(runDir, peerName, "process manager", error) != 0) {
        return false;
    }
    epoll_ = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
    timer_ = UniqueFd(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    reserve_ = OpenReserve();
    if (!epoll_ || !timer_ || !reserve_ || !Watch(listener_.Fd(), kListenerTag, EPOLLIN, EPOLL_CTL_ADD) ||
        !Watch(timer_.Get(), kTimerTag, EPOLLIN, EPOLL_CTL_ADD)) {
        error = "the server's descriptors cannot be made: " + std::generic_category().message(errno);
        return false;
    }
    return true;
}

ServerConnection* TunorServer::Impl::Find(TunorConnectionId id) {
    const auto found = connections_.find(id);
    return found == connections_.end() ? nullptr : found->second.get();
}

const ServerConnection* TunorServer::Impl::FindOpen(TunorConnectionId id) const {
    const auto found = connections_.find(id);
    return found != connections_.end() && found->second->isOpen ? found->second.get() : nullptr;
}

TunorConnectionId TunorServer::Impl::FindByName(const std::string& name) const {
    const auto found = names_.find(name);
    return found == names_.end() ? 0 : found->second;
}

bool TunorServer::Impl::Watch(int fd, uint64_t tag, uint32_t events, int operation) const {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = tag;
    return ::epoll_ctl(epoll_.Get(), operation, fd, &event) == 0;
}

void TunorServer::Impl::WatchWriting(TunorConnectionId id, ServerConnection& connection) const {
    if (connection.HasQueue() == connection.isWatchedForWriting) {
        return;
    }
    connection.isWatchedForWriting = connection.HasQueue();
    const uint32_t events = connection.isWatchedForWriting ? EPOLLIN | EPOLLOUT : EPOLLIN;
    if (!Watch(connection.Fd(), id, events, EPOLL_CTL_MOD)) {
        connection.Doom("its socket cannot be watched");
    }
}

void TunorServer::Impl::Dispatch() {
    epoll_event events[kEventsPerTurn];
    const int count = ::epoll_wait(epoll_.Get(), events, kEventsPerTurn, 0);
    for (int i = 0; i < count; ++i) {
        const uint64_t tag = events[i].data.u64;
        if (tag == kListenerTag) {
            AcceptAll();
        } else if (tag == kTimerTag) {
            ExpireHellos();
        } else {
            Serve(tag, events[i].events);
        }
    }
}

void TunorServer::Impl::Serve(TunorConnectionId id, uint32_t events) {
    ServerConnection* connection = Find(id);
    if (connection == nullptr) {
        return;
    }
    if ((events & EPOLLOUT) != 0) {
        connection->Flush();
        WatchWriting(id, *connection);
    }
    if ((events & ~static_cast<uint32_t>(EPOLLOUT)) == 0) {
        return;
    }
    for (int i = 0; i < kFramesPerTurn && ReadOne(id); ++i) {
    }
}

/// False when nothing more is to be read now, or the connection has ended.
bool TunorServer::Impl::ReadOne(TunorConnectionId id) {
    ServerConnection* connection = Find(id);
    if (connection == nullptr) {
        return false;
    }
    if (connection->DoomReason() != nullptr) {
        End(id, connection->DoomReason());
        return false;
    }
    const ReceiveResult received = ReceiveFrame(connection->Fd(), buffer_, MSG_DONTWAIT);
    const char* reason = nullptr;
    switch (received) {
        case ReceiveResult::EMPTY:
            return false;
        case ReceiveResult::DROPPED:
            TUNOR_LOG(kLogWarn, "TunorServer : dropped a frame of %s (process %d) that carried descriptors",
                      connection->peer.name.c_str(), connection->peer.pid);
            return true;
        case ReceiveResult::END:
            reason = "it is gone";
            break;
        case ReceiveResult::BROKEN:
            reason = buffer_.problem;
            break;
        case ReceiveResult::FRAME:
            reason = TakeFrame(id, *connection, buffer_.frame);
            break;
    }
    if (reason != nullptr) {
        End(id, reason);
    }
    return reason == nullptr;
}

const char* TunorServer::Impl::TakeFrame(TunorConnectionId id, ServerConnection& connection, const FrameView& frame) {
    if (!connection.isOpen) {
        return TakeHello(id, frame);
    }
    if (frame.head.kind == FrameKind::HELLO) {
        return "it said hello twice";
    }
    TakeMessage(id, connection, frame);
    return nullptr;
}

void TunorServer::Impl::TakeMessage(TunorConnectionId id, ServerConnection& connection, const FrameView& frame) {
    const std::string bytes(frame.payload, frame.head.size);
    const uint32_t seq = frame.head.seq;
    if (frame.head.kind == FrameKind::REQUEST) {
        if (callbacks_.request) {
            callbacks_.request(id, bytes);
        }
    } else if (frame.head.kind == FrameKind::CALL) {
        if (callbacks_.call) {
            callbacks_.call(id, seq, bytes);
        }
    } else if (frame.head.kind == FrameKind::ANSWER) {
        if (callbacks_.response) {
            callbacks_.response(id, seq, bytes);
        }
    } else if (!connection.unknownKindLogged) {
        connection.unknownKindLogged = true;
        TUNOR_LOG(kLogWarn, "TunorServer : dropped a frame of %s of the unknown kind %u; further ones silently",
                  connection.peer.name.c_str(), static_cast<uint32_t>(frame.head.kind));
    }
}

void TunorServer::Impl::End(TunorConnectionId id, const char* reason) {
    const auto found = connections_.find(id);
    const std::unique_ptr<ServerConnection> connection = std::move(found->second);
    connections_.erase(found);
    greeting_.erase(id);
    if (!connection->isOpen) {
        TUNOR_LOG(kLogInfo, "TunorServer : closed the connection of process %d before its hello: %s",
                  connection->peer.pid, reason);
        return;
    }
    names_.erase(connection->peer.name);
    TUNOR_LOG(kLogWarn, "TunorServer : the connection of owner %s (process %d) ended: %s",
              connection->peer.name.c_str(), connection->peer.pid, reason);
    if (callbacks_.closed) {
        callbacks_.closed(id, connection->peer, reason);
    }
}

bool TunorServer::Impl::Send(TunorConnectionId id, const std::string& frame) {
    ServerConnection* connection = FindOpen(id) != nullptr ? Find(id) : nullptr;
    if (connection == nullptr || connection->DoomReason() != nullptr || frame.empty()) {
        return false;
    }
    if (!connection->Send(frame, limits_.queueBytes)) {
        connection->Doom(kQueueFull);
        return false;
    }
    WatchWriting(id, *connection);
    return true;
}

uint32_t TunorServer::Impl::SendRequest(TunorConnectionId id, const void* data, size_t size) {
    if (FindOpen(id) == nullptr) {
        return 0;
    }
    const uint32_t seq = Find(id)->NextSeq();
    return Send(id, EncodeFrame(FrameKind::REQUEST, seq, data, size)) ? seq : 0;
}

bool TunorServer::Impl::Close(TunorConnectionId id) {
    if (FindOpen(id) == nullptr) {
        return false;
    }
    const auto found = connections_.find(id);
    found->second->Flush();
    names_.erase(found->second->peer.name);
    connections_.erase(found);
    return true;
}

TunorServer::TunorServer(TunorServerCallbacks callbacks, TunorServerLimits limits)
    : impl_(std::make_unique<Impl>(std::move(callbacks), limits)) {
}

TunorServer::~TunorServer() = default;

bool TunorServer::Listen(const std::string& runDir, const std::string& peerName, std::string& error) {
    return impl_->Listen(runDir, peerName, error);
}

int TunorServer::PollFd() const {
    return impl_->PollFd();
}

void TunorServer::Dispatch() {
    impl_->Dispatch();
}

uint32_t TunorServer::SendRequest(TunorConnectionId id, const void* data, size_t size) {
    return impl_->SendRequest(id, data, size);
}

bool TunorServer::Answer(TunorConnectionId id, uint32_t seq, const void* data, size_t size) {
    return impl_->Send(id, EncodeFrame(FrameKind::ANSWER, seq, data, size));
}

bool TunorServer::SendAppReport(TunorConnectionId id, const std::string& name, pid_t pid, uint32_t state) {
    const std::string payload = EncodeAppReport({name, pid, state});
    return !payload.empty() && impl_->Send(id, EncodeFrame(FrameKind::APP_REPORT, 0, payload.data(), payload.size()));
}

bool TunorServer::SendAppBeat(TunorConnectionId id, const std::string& name, pid_t pid, gid_t gid) {
    const std::string payload = EncodeAppBeat({name, static_cast<uint32_t>(pid), gid});
    return QueuedBytes(id) == 0 && !payload.empty() &&
           impl_->Send(id, EncodeFrame(FrameKind::APP_BEAT, 0, payload.data(), payload.size()));
}

bool TunorServer::Close(TunorConnectionId id) {
    return impl_->Close(id);
}

const TunorPeer* TunorServer::FindPeer(TunorConnectionId id) const {
    const ServerConnection* connection = impl_->FindOpen(id);
    return connection == nullptr ? nullptr : &connection->peer;
}

TunorConnectionId TunorServer::FindByName(const std::string& name) const {
    return impl_->FindByName(name);
}

size_t TunorServer::QueuedBytes(TunorConnectionId id) const {
    const ServerConnection* connection = impl_->FindOpen(id);
    return connection == nullptr ? 0 : connection->QueuedBytes();
}

}  // namespace ProcMgr
