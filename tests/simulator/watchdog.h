/// Ends the process when a call does not return: a hang is a failure that has to name itself.
#ifndef PROCMGR_TESTS_WATCHDOG_H
#define PROCMGR_TESTS_WATCHDOG_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class Watchdog {
public:
    explicit Watchdog(const std::string& what);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable ended_;
    bool isOver_ = false;
    std::thread thread_;
};

#endif
