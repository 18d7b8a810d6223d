/// The parts of the server: what it holds and its steps. tunor_server_accept.cpp has the steps from the listening
/// socket to an open connection, tunor_server.cpp the others.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_SERVER_IMPL_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_SERVER_IMPL_H

#include <sys/socket.h>

#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/posix/common_posix/packet_listener.h"
#include "platform/posix/tunor/server_connection.h"
#include "platform/posix/tunor/tunor_server.h"
#include "platform/posix/tunor/tunor_socket.h"

namespace ProcMgr {

class TunorServer::Impl {
public:
    Impl(TunorServerCallbacks callbacks, TunorServerLimits limits)
        : callbacks_(std::move(callbacks)), limits_(limits) {}

    bool Listen(const std::string& runDir, const std::string& peerName, std::string& error);
    int PollFd() const { return epoll_.Get(); }
    void Dispatch();

    bool Send(TunorConnectionId id, const std::string& frame);
    uint32_t SendRequest(TunorConnectionId id, const void* data, size_t size);
    bool Close(TunorConnectionId id);
    const ServerConnection* FindOpen(TunorConnectionId id) const;
    TunorConnectionId FindByName(const std::string& name) const;

private:
    ServerConnection* Find(TunorConnectionId id);
    bool Watch(int fd, uint64_t tag, uint32_t events, int operation) const;
    void WatchWriting(TunorConnectionId id, ServerConnection& connection) const;

    void AcceptAll();
    void Accept(UniqueFd fd);
    static UniqueFd OpenReserve();
    void ShedConnection();
    bool IsUserAllowed(uid_t uid) const;
    bool HasPlaceFor(uid_t uid) const;
    void LogRefusedUser(const ucred& user);
    void ArmHelloTimer();
    void ExpireHellos();

    void Serve(TunorConnectionId id, uint32_t events);
    bool ReadOne(TunorConnectionId id);
    const char* TakeFrame(TunorConnectionId id, ServerConnection& connection, const FrameView& frame);
    const char* TakeHello(TunorConnectionId id, const FrameView& frame);
    int FindRefusal(const TunorPeer& peer);
    void TakeMessage(TunorConnectionId id, ServerConnection& connection, const FrameView& frame);
    void End(TunorConnectionId id, const char* reason);

    const TunorServerCallbacks callbacks_;
    const TunorServerLimits limits_;
    PacketListener listener_;
    UniqueFd epoll_;
    UniqueFd timer_;
    UniqueFd reserve_;  // given up for a moment when the process has no descriptor left to accept with
    ReceiveBuffer buffer_;
    std::map<TunorConnectionId, std::unique_ptr<ServerConnection>> connections_;
    std::map<std::string, TunorConnectionId> names_;  // of the open ones
    std::set<TunorConnectionId> greeting_;            // in the order of their deadlines
    std::set<uid_t> refusedUids_;
    TunorConnectionId lastId_ = 0;
};

}  // namespace ProcMgr

#endif
