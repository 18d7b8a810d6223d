/// The line that moves on a terminal while a long command waits.
#ifndef SSCTL_PROGRESS_H
#define SSCTL_PROGRESS_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Ssctl {

/// "- stopping 1, starting 2: 1.2 s of at most 6.0 s", with a spoke that turns every tenth of a second.
[[nodiscard]] std::string ProgressText(const std::string& work, uint64_t elapsedMs, uint64_t limitMs);

/// Shows the line on the standard error from its first third of a second on, and takes it away at the end. Does nothing
/// when the standard error is no terminal.
class Progress {
public:
    Progress(std::string work, uint32_t limitMs);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void Run();

    const std::string work_;
    const uint32_t limitMs_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool isOver_ = false;  ///< guarded by mutex_
    std::thread thread_;   ///< shows the line; none without a terminal
};

}  // namespace Ssctl

#endif
