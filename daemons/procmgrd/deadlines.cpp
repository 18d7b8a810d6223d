#include "daemons/procmgrd/deadlines.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace Procmgrd {

using Clock = std::chrono::steady_clock;

bool Deadlines::Open() {
    timer_.Reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    return timer_.IsOpen();
}

void Deadlines::Arm(DeadlineKind kind, const AppKey& key, uint32_t delayMs) {
    queue_.Arm({kind, key}, Clock::now() + std::chrono::milliseconds(delayMs));
    SetTimer();
}

void Deadlines::Disarm(DeadlineKind kind, const AppKey& key) {
    queue_.Disarm({kind, key});
    SetTimer();
}

std::vector<DeadlineKey> Deadlines::TakeDue() {
    uint64_t expirations = 0;
    static_cast<void>(!read(timer_.Get(), &expirations, sizeof(expirations)));
    std::vector<DeadlineKey> due = queue_.TakeDue(Clock::now());
    SetTimer();
    return due;
}

void Deadlines::SetTimer() {
    constexpr int64_t kNanosPerSecond = 1000000000;
    itimerspec spec{};
    if (!queue_.IsEmpty()) {
        const auto sinceBoot = queue_.Next().time_since_epoch();
        // Zero would switch the timer off.
        const int64_t nanos =
            std::max<int64_t>(1, std::chrono::duration_cast<std::chrono::nanoseconds>(sinceBoot).count());
        spec.it_value.tv_sec = static_cast<time_t>(nanos / kNanosPerSecond);
        spec.it_value.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);
    }
    static_cast<void>(timerfd_settime(timer_.Get(), TFD_TIMER_ABSTIME, &spec, nullptr));
}

}  // namespace Procmgrd
