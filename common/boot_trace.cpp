#include "common/boot_trace.h"

#include <time.h>

#include <iomanip>
#include <locale>
#include <sstream>

namespace ProcMgr {
namespace {

#if defined(__aarch64__)

uint64_t ReadFrequency() {
    uint64_t frequency = 0;
    asm volatile("mrs %0, cntfrq_el0" : "=r"(frequency));
    return frequency;
}

uint64_t ReadCounter() {
    uint64_t counter = 0;
    // The barrier keeps the counter from being read before what stands above in the program.
    asm volatile("isb; mrs %0, cntvct_el0" : "=r"(counter)::"memory");
    return counter;
}

#else

constexpr uint64_t kNanosecondsPerSecond = 1000000000;

uint64_t ReadFrequency() {
    return kNanosecondsPerSecond;
}

uint64_t ReadCounter() {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return 0;
    }
    return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

#endif

}  // namespace

std::string BootStraceAt(uint64_t counter, uint64_t frequency, const std::string& text) {
    if (frequency == 0) {
        return {};
    }
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << "[" << std::fixed << std::setprecision(6) << static_cast<double>(counter) / static_cast<double>(frequency)
         << "s][BOOT_TRACE][" << text << "]";
    return line.str();
}

std::string BootStrace(const std::string& text) {
    return BootStraceAt(ReadCounter(), ReadFrequency(), text);
}

}  // namespace ProcMgr
