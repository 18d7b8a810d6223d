/// A stopwatch on the steady clock.
#ifndef PROCMGR_COMMON_TIMER_H
#define PROCMGR_COMMON_TIMER_H

#include <cstdint>

namespace ProcMgr::DataMaster {

/// A value, not synchronised: whoever owns it guards it. A new one has all fields zero.
class Timer {
public:
    /// A reading of a clock, in nanoseconds since some fixed moment.
    using Clock = int64_t (*)();

    void Start();
    void Stop();

    /// From the start to now while it runs, else to the stop; truncated toward zero. 0 when it was never started.
    int64_t ElapsedMilliseconds() const;

    bool IsRunning() const { return running; }

    /// Makes every timer of the process read another clock, null for the steady clock again. For tests of long spans.
    static void SetClock(Clock clock);

private:
    int64_t startTime = 0;
    int64_t stopTime = 0;
    bool running = false;
};

static_assert(sizeof(Timer) == 24, "three fields and nothing else");

}  // namespace ProcMgr::DataMaster

#endif
