/// Waiting with a deadline on two clocks: it has passed only when the system clock and the steady clock are both past
/// it. So a system clock that is set forward ends no wait early; one that is set back lengthens it.
#ifndef PROCMGR_APP_MANAGER_DEADLINE_WAIT_H
#define PROCMGR_APP_MANAGER_DEADLINE_WAIT_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace ProcMgr {

/// The clocks, and waiting by them. The one place where the manager meets time, so that tests can put another in.
class WaitClocks {
public:
    using SystemTime = std::chrono::system_clock::time_point;
    using SteadyTime = std::chrono::steady_clock::time_point;

    virtual ~WaitClocks() = default;

    virtual SystemTime SystemNow() const = 0;
    virtual SteadyTime SteadyNow() const = 0;

    /// Releases `lock`, waits until `condition` is notified or the system clock shows `until`, and takes `lock` again.
    /// May return earlier.
    virtual void WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                           SystemTime until) = 0;

    /// The clocks of the system; never destroyed.
    static WaitClocks& System();

protected:
    WaitClocks() = default;
    WaitClocks(const WaitClocks&) = default;
    WaitClocks& operator=(const WaitClocks&) = default;
};

/// A moment that lies `wait` behind its construction or its last Restart. Used by one thread at a time.
class Deadline {
public:
    /// `clocks` must outlive it.
    Deadline(WaitClocks& clocks, std::chrono::milliseconds wait);

    /// Begins the wait anew. Who is inside Wait with the lock that the caller holds, waits that much longer.
    void Restart();

    /// What is left on the clock that has more left; zero or negative when both are past.
    WaitClocks::SystemTime::duration Remaining() const;

    bool HasPassed() const { return Remaining() <= WaitClocks::SystemTime::duration::zero(); }

    /// Waits on `condition`, with `lock` held by the caller, until `isReached()`. False when the deadline passed
    /// first; `isReached()` is asked once more before that.
    template <typename Predicate>
    [[nodiscard]] bool Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                            Predicate isReached) const {
        while (!isReached()) {
            const WaitClocks::SystemTime::duration remaining = Remaining();
            if (remaining <= WaitClocks::SystemTime::duration::zero()) {
                return false;
            }
            clocks_.WaitUntil(condition, lock, clocks_.SystemNow() + remaining);
        }
        return true;
    }

private:
    WaitClocks& clocks_;
    const std::chrono::milliseconds wait_;
    WaitClocks::SystemTime systemDeadline_;
    WaitClocks::SteadyTime steadyDeadline_;
};

}  // namespace ProcMgr

#endif
