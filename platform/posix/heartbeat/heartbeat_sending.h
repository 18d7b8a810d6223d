/// The sending half: one thread beats for all senders of this process.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_SENDING_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_SENDING_H

#include <sys/un.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/include/heartbeat.h"
#include "platform/posix/heartbeat/heartbeat_settings.h"
#include "platform/posix/heartbeat/wake_up.h"

/// One sender; who holds its address holds the handle.
struct HeartBeatSender {
    std::string beat;  ///< the datagram
    sockaddr_un peer;
    std::chrono::steady_clock::time_point next;
};

namespace ProcMgr::Posix {

/// When to beat after a beat that was planned for `planned` and sent at `now`. A period later, counted from the plan,
/// so that beats do not drift; from now when that has passed already. Much sooner when the peer's queue was full,
/// because that beat is lost and the watcher counts.
std::chrono::steady_clock::time_point NextBeat(std::chrono::steady_clock::time_point planned,
                                               std::chrono::steady_clock::time_point now,
                                               std::chrono::milliseconds period, bool isQueueFull);

/// Safe for any thread.
class HeartBeatSending {
public:
    /// The one of this process; never destroyed.
    static HeartBeatSending& Get();

    /// Begins to beat, at once. Returns 0 or an errno.
    int Register(const std::string& name, const std::string& peer, HeartBeatHandle& handle);

    /// No beat of it is sent after this has returned. Returns 0, or EINVAL for a handle that is not in use.
    int Unregister(HeartBeatHandle handle);

private:
    explicit HeartBeatSending(const HeartBeatSettings& settings);
    void Run();
    std::optional<WakeUp::Time> BeatAll();
    void BeatOne(HeartBeatSender& sender, WakeUp::Time now) const;

    const std::chrono::milliseconds period_;
    const std::string runDirectory_;
    const int socket_;
    const WakeUp wakeUp_;

    std::mutex mutex_;
    std::map<HeartBeatHandle, std::unique_ptr<HeartBeatSender>> senders_;  ///< guarded by mutex_
    bool isRunning_ = false;                                               ///< guarded by mutex_
};

}  // namespace ProcMgr::Posix

#endif
