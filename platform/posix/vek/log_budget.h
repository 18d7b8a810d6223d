/// How many lines strangers may cause in the log: a number in each window of time; the others are counted. Not
/// thread-safe.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_LOG_BUDGET_H
#define PROCMGR_PLATFORM_POSIX_VEK_LOG_BUDGET_H

#include <chrono>
#include <cstdint>
#include <utility>

namespace ProcMgr {

class LogBudget {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr uint32_t kLines = 32;
    static constexpr std::chrono::seconds kWindow{10};

    /// True when a line may be written now. `suppressed` becomes the number of lines that were refused and not yet told
    /// by this output; other than 0 only with the first line of a window.
    [[nodiscard]] bool Take(Clock::time_point now, uint32_t& suppressed) {
        suppressed = 0;
        if (now >= end_) {
            end_ = now + kWindow;
            left_ = kLines;
            suppressed = std::exchange(refused_, 0);
        }
        if (left_ == 0) {
            ++refused_;
            return false;
        }
        --left_;
        return true;
    }

private:
    Clock::time_point end_ = Clock::time_point::min();
    uint32_t left_ = 0;
    uint32_t refused_ = 0;
};

}  // namespace ProcMgr

#endif
