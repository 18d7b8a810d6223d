/// Clocks that stand still until a test moves them, or until the manager waits and nothing is left that could end the
/// wait: then they show the end of it at once.
#ifndef PROCMGR_TESTS_APP_MANAGER_FAKE_CLOCKS_H
#define PROCMGR_TESTS_APP_MANAGER_FAKE_CLOCKS_H

#include <chrono>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "app_manager/deadline_wait.h"

namespace ProcMgr {

class FakeClocks : public WaitClocks {
public:
    using Milliseconds = std::chrono::milliseconds;

    SystemTime SystemNow() const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        return system_;
    }

    SteadyTime SteadyNow() const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        return steady_;
    }

    void WaitUntil(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& lock,
                   SystemTime until) override {
        {
            const std::lock_guard<std::mutex> ownLock(mutex_);
            waits_.push_back(std::chrono::duration_cast<Milliseconds>(until - system_));
        }
        lock.unlock();
        const bool somethingHappened = onWait_ && onWait_();
        lock.lock();
        if (!somethingHappened) {
            const std::lock_guard<std::mutex> ownLock(mutex_);
            steady_ += until - system_;
            system_ = until;
        }
    }

    /// Called instead of waiting, without the waiter's lock; true when it did something that may end the wait.
    void OnWait(std::function<bool()> step) { onWait_ = std::move(step); }

    void Advance(Milliseconds time) {
        const std::lock_guard<std::mutex> lock(mutex_);
        system_ += time;
        steady_ += time;
    }

    void SetSystemForward(Milliseconds time) {
        const std::lock_guard<std::mutex> lock(mutex_);
        system_ += time;
    }

    /// The longest that each wait of so far could have lasted.
    std::vector<Milliseconds> Waits() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return waits_;
    }

    /// What has passed on the steady clock since the begin.
    Milliseconds Elapsed() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::chrono::duration_cast<Milliseconds>(steady_ - SteadyTime());
    }

private:
    mutable std::mutex mutex_;
    SystemTime system_{std::chrono::hours(1)};
    SteadyTime steady_;
    std::vector<Milliseconds> waits_;
    std::function<bool()> onWait_;
};

}  // namespace ProcMgr

#endif
