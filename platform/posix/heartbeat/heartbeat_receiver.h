/// The address at which a watcher receives beats.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_RECEIVER_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_RECEIVER_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace ProcMgr::Posix {

/// One beat. The name is what the sender calls itself; the rest is what the kernel says about the sender.
struct ReceivedBeat {
    std::string name;
    pid_t pid;
    uid_t uid;
    gid_t gid;
};

/// Owns the socket and its file. Not synchronised.
class HeartBeatReceiver {
public:
    /// Binds <run dir>/heartbeat/<watcher>.sock, to which everybody may send; makes the folder when it is not there
    /// (the run directory must be). What a watcher that is gone left there is replaced. Returns 0 or an errno:
    /// EADDRINUSE when somebody receives there already, ENAMETOOLONG when the path is too long for a socket.
    [[nodiscard]] static int Open(const std::string& runDirectory, const std::string& watcher,
                                  std::unique_ptr<HeartBeatReceiver>& receiver);

    /// Closes the socket and removes its file.
    ~HeartBeatReceiver();

    /// Readable while beats wait; for an event loop.
    int Descriptor() const { return fd_; }

    /// Takes the beats that wait, never blocks. What is no beat is dropped.
    std::vector<ReceivedBeat> Receive();

    HeartBeatReceiver(const HeartBeatReceiver&) = delete;
    HeartBeatReceiver& operator=(const HeartBeatReceiver&) = delete;

private:
    explicit HeartBeatReceiver(int fd) : fd_(fd) {}
    int Bind(const std::string& path);

    const int fd_;
    std::string path_;  ///< empty until it is bound
};

}  // namespace ProcMgr::Posix

#endif
