/// Requests from a thread of their own, one after the other, beside what the test itself asks for.
#ifndef PROCMGR_TESTS_SIDE_REQUESTS_H
#define PROCMGR_TESTS_SIDE_REQUESTS_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <random>
#include <thread>

class SideRequests {
public:
    /// Calls `request` over and over, until it is destroyed.
    SideRequests(uint32_t seed, std::function<void(std::mt19937&)> request);
    ~SideRequests();
    SideRequests(const SideRequests&) = delete;
    SideRequests& operator=(const SideRequests&) = delete;

    /// Calls `action` while no request is on its way.
    void Between(const std::function<void()>& action);

private:
    void Run(uint32_t seed);

    const std::function<void(std::mt19937&)> request_;

    std::mutex mutex_;  ///< guards everything below
    std::condition_variable changed_;
    bool isAsking_ = false;
    bool isHeld_ = false;
    bool isEnding_ = false;

    std::thread thread_;
};

#endif
