/// Lets a thread sleep until a time, until a descriptor is readable, or until another thread calls.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_WAKE_UP_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_WAKE_UP_H

#include <chrono>
#include <optional>

namespace ProcMgr::Posix {

class WakeUp {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Throws std::system_error when there is no descriptor left.
    WakeUp();
    ~WakeUp();

    /// From any thread: the running wait, or the next one, returns at once.
    void Notify() const;

    /// Returns at `until` at the latest, and never early without a reason other than a signal. `descriptor`: -1 for
    /// none. One thread only.
    void Wait(std::optional<Time> until, int descriptor) const;

    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

private:
    const int fd_;
};

}  // namespace ProcMgr::Posix

#endif
