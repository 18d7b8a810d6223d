#include "common/timer.h"

#include <atomic>
#include <chrono>

namespace ProcMgr::DataMaster {
namespace {

constexpr int64_t kNanosecondsPerMillisecond = 1000000;

int64_t ReadSteadyClock() {
    const auto sinceEpoch = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
}

std::atomic<Timer::Clock> g_clock{&ReadSteadyClock};

int64_t Now() {
    return g_clock.load()();
}

}  // namespace

void Timer::Start() {
    startTime = Now();
    running = true;
}

void Timer::Stop() {
    stopTime = Now();
    running = false;
}

int64_t Timer::ElapsedMilliseconds() const {
    const int64_t end = running ? Now() : stopTime;
    return (end - startTime) / kNanosecondsPerMillisecond;
}

void Timer::SetClock(Clock clock) {
    g_clock.store(clock == nullptr ? &ReadSteadyClock : clock);
}

}  // namespace ProcMgr::DataMaster
