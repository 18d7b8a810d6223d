#include "app_manager/deadline_wait.h"

#include <algorithm>

namespace ProcMgr {

namespace {

class SystemClocks : public WaitClocks {
public:
    SystemTime SystemNow() const override { return std::chrono::system_clock::now(); }
    SteadyTime SteadyNow() const override { return std::chrono::steady_clock::now(); }

    void WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, SystemTime until) override {
        condition.wait_until(lock, until);
    }
};

}  // namespace

WaitClocks& WaitClocks::System() {
    // Threads of the platform may still wait while the process exits.
    static WaitClocks& clocks = *new SystemClocks;
    return clocks;
}

Deadline::Deadline(WaitClocks& clocks, std::chrono::milliseconds wait)
    : clocks_(clocks),
      wait_(wait),
      systemDeadline_(clocks.SystemNow() + wait),
      steadyDeadline_(clocks.SteadyNow() + wait) {
}

void Deadline::Restart() {
    systemDeadline_ = clocks_.SystemNow() + wait_;
    steadyDeadline_ = clocks_.SteadyNow() + wait_;
}

WaitClocks::SystemTime::duration Deadline::Remaining() const {
    using Duration = WaitClocks::SystemTime::duration;
    const Duration onSystem = systemDeadline_ - clocks_.SystemNow();
    const Duration onSteady = std::chrono::duration_cast<Duration>(steadyDeadline_ - clocks_.SteadyNow());
    return std::max(onSystem, onSteady);
}

}  // namespace ProcMgr
