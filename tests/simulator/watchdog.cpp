#include "tests/simulator/watchdog.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

Watchdog::Watchdog(const std::string& what)
    : thread_([this, what] {
          std::unique_lock<std::mutex> lock(mutex_);
          if (!ended_.wait_for(lock, std::chrono::minutes(2), [this] { return isOver_; })) {
              std::fprintf(stderr, "hangs: %s did not return within two minutes\n", what.c_str());
              std::abort();
          }
      }) {
}

Watchdog::~Watchdog() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isOver_ = true;
    }
    ended_.notify_all();
    thread_.join();
}
