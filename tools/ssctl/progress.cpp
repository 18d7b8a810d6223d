#include "tools/ssctl/progress.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <utility>

#include "tools/ssctl/terminal.h"

namespace Ssctl {

namespace {

constexpr std::chrono::milliseconds kFirst{300};
constexpr std::chrono::milliseconds kStep{100};
constexpr const char* kClearLine = "\r\x1b[K";

std::string Seconds(uint64_t ms) {
    return std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100) + " s";
}

}  // namespace

std::string ProgressText(const std::string& work, uint64_t elapsedMs, uint64_t limitMs) {
    constexpr std::array<char, 4> kSpokes = {'|', '/', '-', '\\'};
    const auto step = static_cast<uint64_t>(kStep.count());
    return std::string(1, kSpokes[elapsedMs / step % kSpokes.size()]) + " " + work + ": " + Seconds(elapsedMs) +
           " of at most " + Seconds(limitMs);
}

Progress::Progress(std::string work, uint32_t limitMs) : work_(std::move(work)), limitMs_(limitMs) {
    if (IsTerminal(stderr)) {
        thread_ = std::thread(&Progress::Run, this);
    }
}

Progress::~Progress() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isOver_ = true;
    }
    ended_.notify_all();
    thread_.join();
}

void Progress::Run() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    bool isShown = false;
    std::unique_lock<std::mutex> lock(mutex_);
    for (Clock::time_point next = begin + kFirst; !ended_.wait_until(lock, next, [this] { return isOver_; });
         next += kStep) {
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
        const std::string text = ProgressText(work_, static_cast<uint64_t>(elapsed), limitMs_);
        static_cast<void>(std::fprintf(stderr, "%s%s", kClearLine, text.c_str()));
        isShown = true;
    }
    if (isShown) {
        static_cast<void>(std::fputs(kClearLine, stderr));
    }
}

}  // namespace Ssctl
