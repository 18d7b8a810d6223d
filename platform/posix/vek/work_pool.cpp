#include "platform/posix/vek/work_pool.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/posix/common_posix/signals_blocked.h"

namespace ProcMgr {

WorkPool::~WorkPool() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

bool WorkPool::Start() {
    const SignalsBlocked signalsBlocked;
    const std::lock_guard<std::mutex> lock(mutex_);
    try {
        while (threads_.size() < kThreads) {
            threads_.emplace_back([this] { Loop(); });
        }
    } catch (const std::system_error&) {
        // A single thread does, only slower.
    }
    return !threads_.empty();
}

void WorkPool::Add(Job job) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        waiting_[job.process].push_back(std::move(job));
    }
    changed_.notify_one();
}

void WorkPool::Loop() {
    while (std::optional<Job> job = NextJob()) {
        job->work();
        if (job->isLong) {
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                --longJobs_;
            }
            changed_.notify_one();
        }
    }
}

std::optional<WorkPool::Job> WorkPool::NextJob() {
    std::unique_lock<std::mutex> lock(mutex_);
    std::optional<Job> job;
    changed_.wait(lock, [&] {
        job = TakeRunnable();
        return job.has_value() || (stopping_ && waiting_.empty());
    });
    return job;
}

std::optional<WorkPool::Job> WorkPool::TakeRunnable() {
    auto jobs = waiting_.upper_bound(lastProcess_);
    for (size_t i = waiting_.size(); i > 0; --i) {
        jobs = jobs == waiting_.end() ? waiting_.begin() : jobs;
        if (std::optional<Job> job = TakeFrom(jobs)) {
            return job;
        }
        ++jobs;
    }
    return std::nullopt;
}

std::optional<WorkPool::Job> WorkPool::TakeFrom(std::map<pid_t, std::deque<Job>>::iterator jobs) {
    std::deque<Job>& list = jobs->second;
    const auto found = std::find_if(list.begin(), list.end(), [this](const Job& job) { return IsRunnable(job); });
    if (found == list.end()) {
        return std::nullopt;
    }
    Job job = std::move(*found);
    lastProcess_ = job.process;
    longJobs_ += job.isLong ? 1 : 0;
    list.erase(found);
    if (list.empty()) {
        waiting_.erase(jobs);
    }
    return job;
}

}  // namespace ProcMgr
