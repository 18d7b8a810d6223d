#include "tests/simulator/side_requests.h"

#include <utility>

SideRequests::SideRequests(uint32_t seed, std::function<void(std::mt19937&)> request)
    : request_(std::move(request)), thread_([this, seed] { Run(seed); }) {
}

SideRequests::~SideRequests() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void SideRequests::Between(const std::function<void()>& action) {
    std::unique_lock<std::mutex> lock(mutex_);
    isHeld_ = true;
    changed_.wait(lock, [this] { return !isAsking_; });
    lock.unlock();
    action();
    lock.lock();
    isHeld_ = false;
    changed_.notify_all();
}

void SideRequests::Run(uint32_t seed) {
    std::mt19937 random(seed);
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isEnding_ || !isHeld_; });
        if (isEnding_) {
            return;
        }
        isAsking_ = true;
        lock.unlock();
        request_(random);
        lock.lock();
        isAsking_ = false;
        changed_.notify_all();
    }
}
