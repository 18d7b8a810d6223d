/// The pipe on which the applications tell their time stamps.
#ifndef BENCH_PROCESSES_STAMP_PIPE_H
#define BENCH_PROCESSES_STAMP_PIPE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "bench/processes/stamp.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Bench {

/// Only something that hangs takes so long.
constexpr std::chrono::seconds kPatience{60};

class StampPipe {
public:
    /// Makes the named pipe. Throws std::system_error.
    explicit StampPipe(const std::string& path);

    /// Waits for this many further stamps; throws std::runtime_error when patience ends.
    std::vector<BenchStamp> Take(size_t count) const;

private:
    ProcMgr::UniqueFd pipe_;
};

/// Waits until the descriptor is readable; throws std::runtime_error with `what` when patience ends.
void AwaitReadable(int fd, const char* what);

}  // namespace Bench

#endif
