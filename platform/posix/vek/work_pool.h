/// The few threads on which the bus calls the services. A long job (one that changes something, and may wait for the
/// applications) takes at most half of them, so that questions are answered while changes run. The processes that the
/// jobs come from take turns, so that one with many jobs does not keep the others waiting.
///
/// Not bounded by itself: each open file has at most one job here, and the number of files is bounded.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_WORK_POOL_H
#define PROCMGR_PLATFORM_POSIX_VEK_WORK_POOL_H

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace ProcMgr {

class WorkPool {
public:
    struct Job {
        pid_t process = 0;  ///< that it is done for
        bool isLong = false;
        std::function<void()> work;  ///< throws nothing
    };

    static constexpr size_t kThreads = 4;
    static constexpr size_t kLongJobs = kThreads / 2;

    WorkPool() = default;
    /// Finishes what was added.
    ~WorkPool();
    WorkPool(const WorkPool&) = delete;
    WorkPool& operator=(const WorkPool&) = delete;

    /// Makes the threads, unless they are there. False when the system gives none at all.
    [[nodiscard]] bool Start();

    /// From any thread.
    void Add(Job job);

private:
    void Loop();
    std::optional<Job> NextJob();
    std::optional<Job> TakeRunnable();
    std::optional<Job> TakeFrom(std::map<pid_t, std::deque<Job>>::iterator jobs);
    bool IsRunnable(const Job& job) const { return !job.isLong || longJobs_ < kLongJobs; }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<pid_t, std::deque<Job>> waiting_;  // guarded by mutex_, as is all below; no empty list
    pid_t lastProcess_ = 0;                     // that had its turn
    size_t longJobs_ = 0;                       // that run
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace ProcMgr

#endif
