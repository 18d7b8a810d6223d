#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "platform/posix/tunor/tunor_log.h"
#include "platform/posix/tunor/tunor_server_impl.h"

namespace ProcMgr {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kAcceptsPerTurn = 64;
constexpr size_t kRefusedUidsRemembered = 64;

}  // namespace

UniqueFd TunorServer::Impl::OpenReserve() {
    return UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

void TunorServer::Impl::AcceptAll() {
    for (int i = 0; i < kAcceptsPerTurn; ++i) {
        UniqueFd fd(::accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (fd) {
            Accept(std::move(fd));
            continue;
        }
        if (errno == EMFILE || errno == ENFILE) {
            ShedConnection();
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

void TunorServer::Impl::ShedConnection() {
    TUNOR_LOG(kLogError, "TunorServer : no descriptor is left for a further connection; it is closed");
    reserve_.Reset();
    UniqueFd(::accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC)).Reset();
    reserve_ = OpenReserve();
    errno = EMFILE;
}

bool TunorServer::Impl::IsUserAllowed(uid_t uid) const {
    return callbacks_.allowUser ? callbacks_.allowUser(uid) : uid == 0 || uid == ::geteuid();
}

/// One user that the rules allow must not be able to keep the others out.
bool TunorServer::Impl::HasPlaceFor(uid_t uid) const {
    const auto isTheirs = [uid](const auto& entry) { return entry.second->peer.uid == uid; };
    const bool isTrusted = uid == 0 || uid == ::geteuid();
    const auto held = static_cast<size_t>(std::count_if(connections_.begin(), connections_.end(), isTheirs));
    return connections_.size() < limits_.connections && (isTrusted || held < limits_.connectionsOfUser);
}

void TunorServer::Impl::LogRefusedUser(const ucred& user) {
    // Once for each user: a stranger must not be able to fill the log.
    if (refusedUids_.size() < kRefusedUidsRemembered && refusedUids_.insert(user.uid).second) {
        TUNOR_LOG(kLogWarn, "TunorServer : refused process %d: uid %u may not connect; further ones silently", user.pid,
                  user.uid);
    }
}

void TunorServer::Impl::Accept(UniqueFd fd) {
    ucred user = {};
    if (!ReadPeerCredentials(fd.Get(), user)) {
        return;
    }
    if (!IsUserAllowed(user.uid)) {
        LogRefusedUser(user);
        SendPacket(fd.Get(), EncodeHelloAnswer(EACCES), MSG_DONTWAIT);
        return;
    }
    if (!HasPlaceFor(user.uid)) {
        TUNOR_LOG(kLogWarn,
                  "TunorServer : refused process %d of uid %u: %zu connections are the limit, %zu for one user",
                  user.pid, user.uid, limits_.connections, limits_.connectionsOfUser);
        SendPacket(fd.Get(), EncodeHelloAnswer(EAGAIN), MSG_DONTWAIT);
        return;
    }
    const TunorConnectionId id = ++lastId_;
    if (!Watch(fd.Get(), id, EPOLLIN, EPOLL_CTL_ADD)) {
        TUNOR_LOG(kLogError, "TunorServer : the socket of process %d cannot be watched", user.pid);
        return;
    }
    TunorPeer peer{{}, user.pid, user.uid, user.gid, {}};
    if (!ReadPeerGroups(fd.Get(), peer.groups)) {
        TUNOR_LOG(kLogWarn, "TunorServer : the groups of process %d are unknown; it counts as having none", user.pid);
    }
    auto connection = std::make_unique<ServerConnection>(std::move(fd), std::move(peer));
    connection->helloDeadline = Clock::now() + std::chrono::milliseconds(limits_.helloTimeoutMs);
    connections_[id] = std::move(connection);
    greeting_.insert(id);
    if (greeting_.size() == 1) {
        ArmHelloTimer();
    }
}

void TunorServer::Impl::ArmHelloTimer() {
    itimerspec when = {};
    if (!greeting_.empty()) {
        const Clock::duration left = connections_.at(*greeting_.begin())->helloDeadline - Clock::now();
        const auto nanoseconds = std::max<int64_t>(std::chrono::nanoseconds(left).count(), 1);
        when.it_value.tv_sec = nanoseconds / 1000000000;
        when.it_value.tv_nsec = nanoseconds % 1000000000;
    }
    ::timerfd_settime(timer_.Get(), 0, &when, nullptr);
}

void TunorServer::Impl::ExpireHellos() {
    const Clock::time_point now = Clock::now();
    while (!greeting_.empty() && connections_.at(*greeting_.begin())->helloDeadline <= now) {
        const TunorConnectionId id = *greeting_.begin();
        // A hello that already waits is in time: then it was the daemon that was late.
        ReadOne(id);
        if (greeting_.count(id) != 0) {
            End(id, "it said no hello in time");
        }
    }
    // Setting the timer also takes back its readiness.
    ArmHelloTimer();
}

const char* TunorServer::Impl::TakeHello(TunorConnectionId id, const FrameView& frame) {
    TunorPeer peer = connections_.at(id)->peer;
    if (!DecodeHello(frame, peer.name)) {
        return "its first frame is no hello";
    }
    const int refusal = FindRefusal(peer);
    ServerConnection& connection = *connections_.at(id);
    if (refusal != 0) {
        TUNOR_LOG(kLogWarn, "TunorServer : refused owner %s (process %d, uid %u): errno=%d", peer.name.c_str(),
                  peer.pid, peer.uid, refusal);
        SendPacket(connection.Fd(), EncodeHelloAnswer(refusal), MSG_DONTWAIT);
        return "it was refused";
    }
    SendPacket(connection.Fd(), EncodeHelloAnswer(0), MSG_DONTWAIT);
    connection.peer = peer;
    connection.isOpen = true;
    greeting_.erase(id);
    names_[peer.name] = id;
    TUNOR_LOG(kLogInfo, "TunorServer : owner %s connected (process %d, uid %u)", peer.name.c_str(), peer.pid, peer.uid);
    if (callbacks_.opened) {
        callbacks_.opened(id, peer);
    }
    return nullptr;
}

int TunorServer::Impl::FindRefusal(const TunorPeer& peer) {
    const ServerConnection* other = FindOpen(FindByName(peer.name));
    if (other != nullptr && (other->IsPeerGone() || other->DoomReason() != nullptr)) {
        // The old process ended before the new one came: what it still said is heard, then the name is free.
        const TunorConnectionId gone = FindByName(peer.name);
        while (ReadOne(gone)) {
        }
    }
    if (FindByName(peer.name) != 0) {
        return EADDRINUSE;
    }
    const int refusal = callbacks_.admit ? callbacks_.admit(peer) : 0;
    return refusal < 0 ? EACCES : refusal;
}

}  // namespace ProcMgr
