// The boot trace of a 64-bit Arm processor, beside the test's own readings of the counter and frequency registers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "common/boot_trace.h"

namespace ProcMgr {
namespace {

constexpr double kPrintedGrain = 1e-6;

uint64_t Frequency() {
    uint64_t frequency = 0;
    asm volatile("mrs %0, cntfrq_el0" : "=r"(frequency));
    return frequency;
}

uint64_t Counter() {
    uint64_t counter = 0;
    asm volatile("isb; mrs %0, cntvct_el0; isb" : "=r"(counter)::"memory");
    return counter;
}

double CounterSeconds() {
    return static_cast<double>(Counter()) / static_cast<double>(Frequency());
}

double TracedSeconds() {
    return std::stod(BootStrace("x").substr(1));
}

double ClockSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

TEST(BootStraceCounter, FrequencyIsThatOfACounterRegister) {
    EXPECT_GE(Frequency(), 1000000U);
    EXPECT_LE(Frequency(), 1000000000U);
}

TEST(BootStraceCounter, TracedSecondsLieBetweenTwoReadingsOfTheCounterRegister) {
    const double before = CounterSeconds();
    const double traced = TracedSeconds();
    const double after = CounterSeconds();
    EXPECT_GE(traced, before - kPrintedGrain);
    EXPECT_LE(traced, after + kPrintedGrain);
    EXPECT_GT(traced, 0.0);
}

TEST(BootStraceCounter, LineHasSixDecimalsAndTheText) {
    EXPECT_THAT(BootStrace("SS_SERVER"), testing::MatchesRegex(R"(\[[0-9]+\.[0-9]{6}s\]\[BOOT_TRACE\]\[SS_SERVER\])"));
}

TEST(BootStraceCounter, NeverGoesBack) {
    double last = 0.0;
    for (int i = 0; i < 1000; ++i) {
        const double now = TracedSeconds();
        ASSERT_GE(now, last);
        last = now;
    }
}

// Each span of the counter lies inside one span of the steady clock and around another, so load can't bend the outcome.
TEST(BootStraceCounter, RunsAsFastAsTheSteadyClock) {
    const double outerStart = ClockSeconds();
    const double start = TracedSeconds();
    const double innerStart = ClockSeconds();
    while (ClockSeconds() - innerStart < 0.05) {
    }
    const double innerEnd = ClockSeconds();
    const double end = TracedSeconds();
    const double outerEnd = ClockSeconds();
    EXPECT_GE(end - start, 0.99 * (innerEnd - innerStart) - kPrintedGrain);
    EXPECT_LE(end - start, 1.01 * (outerEnd - outerStart) + kPrintedGrain);
}

}  // namespace
}  // namespace ProcMgr
