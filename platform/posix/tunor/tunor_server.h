/// The process manager's side of the pipe.
///
/// One thread owns a server: every operation and the destructor belong to the thread that calls Dispatch(). The daemon
/// puts PollFd() into its own loop and calls Dispatch() whenever it is readable; Dispatch() does a bounded amount of
/// work, never blocks, and is the only operation that calls back. Callbacks may use every operation of the server
/// except its destructor and Dispatch(); they must not throw.
///
/// A connection lives through these states:
///   greeting  accepted, its user allowed, its hello not yet read. Ends in `open`, or closed without any callback when
///             the hello is wrong, refused or late.
///   open      between `opened` and `closed`. Ends when the client goes away or breaks the rules of the frames, when
///             its queue passes the limit, or by Close().
/// The reason of each end that nobody asked for is logged here; the daemon need not log it again.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_SERVER_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_SERVER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ProcMgr {

/// A connection's number; never 0 and never used twice by one server.
using TunorConnectionId = uint64_t;

/// Who is at the other end, as its hello (name) and the kernel (the rest, at the time of connect) say.
struct TunorPeer {
    std::string name;
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;  ///< the supplementary ones
};

struct TunorServerCallbacks {
    /// May this user connect at all? Asked before a hello is read; a user that may not gets EACCES and takes no place
    /// among the connections. Unset: only root and the daemon's own user.
    std::function<bool(uid_t uid)> allowUser;
    /// May this owner come in? 0, or the errno that its TunorOpen fails with. Asked after `allowUser`, and only for a
    /// name that no live connection has (a second one is refused with EADDRINUSE). Unset: everyone.
    std::function<int(const TunorPeer& peer)> admit;
    /// The connection is open; its client may not yet have read that.
    std::function<void(TunorConnectionId id, const TunorPeer& peer)> opened;
    /// A one-way request. `bytes` is valid during the call.
    std::function<void(TunorConnectionId id, const std::string& bytes)> request;
    /// A call; answer it once, now or later, by Answer(id, seq, ...). Unset: it is never answered.
    std::function<void(TunorConnectionId id, uint32_t seq, const std::string& bytes)> call;
    /// The client answered the request that SendRequest numbered `seq`. Unset: dropped.
    std::function<void(TunorConnectionId id, uint32_t seq, const std::string& bytes)> response;
    /// An open connection ended, other than by Close(). `id` is no longer usable, its name is free again.
    std::function<void(TunorConnectionId id, const TunorPeer& peer, const std::string& reason)> closed;
};

struct TunorServerLimits {
    size_t connections = 256;              ///< greeting and open ones; a further one is answered EAGAIN
    size_t queueBytes = size_t{16} << 20;  ///< frames waiting for one client that does not read
    uint32_t helloTimeoutMs = 5000;        ///< from accept to the hello
    size_t connectionsOfUser = 64;         ///< of one user that is neither root nor the daemon's own
};

class TunorServer {
public:
    explicit TunorServer(TunorServerCallbacks callbacks, TunorServerLimits limits = {});
    /// Closes all connections without callbacks, removes the socket and gives the lock back.
    ~TunorServer();
    TunorServer(const TunorServer&) = delete;
    TunorServer& operator=(const TunorServer&) = delete;

    /// Makes <runDir>/<peerName>.sock and listens. Creates the folder (0755) when its parent exists. A socket file left
    /// by a dead server is replaced; that there is no live one is known by the lock on <runDir>/<peerName>.lock, which
    /// is held until the destructor. The socket's mode is 0666: who may connect is decided by credentials, not by the
    /// file. False, with a sentence in `error`, on failure; call it at most once with success.
    [[nodiscard]] bool Listen(const std::string& runDir, const std::string& peerName, std::string& error);

    /// Readable whenever Dispatch() has something to do; valid from Listen() until the destructor.
    int PollFd() const;
    void Dispatch();

    /// Queues a one-way request for the client and returns its number (> 0); 0 when the connection is not open, the
    /// data is over the frame's limit or the queue passed its limit (the connection then ends at the next Dispatch()).
    /// The operations that send copy the data and never block.
    uint32_t SendRequest(TunorConnectionId id, const void* data, size_t size);
    bool Answer(TunorConnectionId id, uint32_t seq, const void* data, size_t size);
    /// `state`: 0 on, 1 off.
    bool SendAppReport(TunorConnectionId id, const std::string& name, pid_t pid, uint32_t state);
    /// A beat never waits: it is dropped, with the result false, when the client has not yet taken what came before. An
    /// empty name is the server's own beat.
    bool SendAppBeat(TunorConnectionId id, const std::string& name, pid_t pid, gid_t gid);

    /// Sends what the socket still takes, drops the rest and ends the connection; `closed` is not called. False when it
    /// is not open.
    bool Close(TunorConnectionId id);

    /// Null when the connection is not open; valid until it ends.
    const TunorPeer* FindPeer(TunorConnectionId id) const;
    /// 0 when no open connection has this name.
    TunorConnectionId FindByName(const std::string& name) const;
    /// Bytes that wait for the client; 0 when it is not open.
    size_t QueuedBytes(TunorConnectionId id) const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace ProcMgr

#endif
