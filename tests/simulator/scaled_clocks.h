/// Clocks that run faster than the system's, so that time-outs of seconds pass in fractions of one.
#ifndef PROCMGR_TESTS_SCALED_CLOCKS_H
#define PROCMGR_TESTS_SCALED_CLOCKS_H

#include <algorithm>
#include <chrono>

#include "app_manager/deadline_wait.h"

class ScaledClocks : public ProcMgr::WaitClocks {
public:
    using Nanoseconds = std::chrono::nanoseconds;

    explicit ScaledClocks(int factor) : factor_(factor) {}

    SystemTime SystemNow() const override { return systemStart_ + Elapsed() * factor_; }
    SteadyTime SteadyNow() const override { return steadyStart_ + Elapsed() * factor_; }

    void WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, SystemTime until) override {
        const SystemTime begin = SystemNow();
        condition.wait_until(lock, systemStart_ + (until - systemStart_) / factor_);
        Waited() += std::max(std::min(SystemNow(), until) - begin, SystemTime::duration::zero());
    }

    /// How long the calling thread has waited so far by clocks like these. That it was woken late does not count, so
    /// that a slow machine makes no difference.
    static Nanoseconds& Waited() {
        static thread_local Nanoseconds waited{0};
        return waited;
    }

private:
    Nanoseconds Elapsed() const { return std::chrono::steady_clock::now() - steadyStart_; }

    const int factor_;
    const SystemTime systemStart_ = std::chrono::system_clock::now();
    const SteadyTime steadyStart_ = std::chrono::steady_clock::now();
};

#endif
