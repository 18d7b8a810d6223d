#include "platform/posix/heartbeat/heartbeat_watching.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <thread>
#include <utility>

#include "platform/posix/heartbeat/heartbeat_log.h"
#include "platform/posix/log/environment.h"

namespace ProcMgr::Posix {
namespace {

constexpr int kLost = 1;
constexpr int kRecovered = 0;

bool IsOfGroup(const ReceivedBeat& beat, unsigned int gid) {
    return beat.gid == gid || (geteuid() != 0 && beat.gid == getgid());
}

// Want of memory costs this beat.
void TakeFromManager(const AppBeat& beat) noexcept {
    try {
        HeartBeatWatching::Get().Take(beat);
    } catch (...) {
    }
}

}  // namespace

HeartBeatWatching& HeartBeatWatching::Get() {
    static HeartBeatWatching& watching = *new HeartBeatWatching(ProcessHeartBeatSettings());
    return watching;
}

HeartBeatWatching::HeartBeatWatching(const HeartBeatSettings& settings)
    : runDirectory_(settings.runDirectory),
      managerPatience_(settings.period),
      table_(settings.period, settings.misses) {
}

int HeartBeatWatching::Watch(const std::string& name, unsigned int gid, HeartBeatNotify callback) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int error = OpenLocked();
    if (error != 0) {
        return error;
    }
    watched_[name] = Watched{gid, callback};
    table_.Watch(name, std::chrono::steady_clock::now());
    wakeUp_.Notify();
    return 0;
}

int HeartBeatWatching::OpenLocked() {
    if (!heard_.has_value() && HasAppBeatCome()) {
        heard_ = std::chrono::steady_clock::now();
    }
    if (receiver_ == nullptr && !heard_.has_value()) {
        const int error = HeartBeatReceiver::Open(runDirectory_, ProcessName(), receiver_);
        if (error != 0) {
            return error;
        }
    }
    if (!isRunning_) {
        std::thread([this] { Run(); }).detach();
        isRunning_ = true;
        SetAppBeatHandler(TakeFromManager);
    }
    return 0;
}

int HeartBeatWatching::Unwatch(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    watched_.erase(name);
    return table_.Unwatch(name) ? 0 : ENOENT;
}

void HeartBeatWatching::Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    watched_.clear();
    table_.Clear();
    calls_.clear();
    receiver_.reset();
    wakeUp_.Notify();
}

void HeartBeatWatching::Take(const AppBeat& beat) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const HeartBeatTable::Time now = std::chrono::steady_clock::now();
    LookAtManager(now);
    heard_ = now;
    if (!beat.name.empty()) {
        AddBeat({beat.name, static_cast<pid_t>(beat.pid), {}, beat.gid}, calls_);
    }
    if (!calls_.empty()) {
        wakeUp_.Notify();
    }
}

void HeartBeatWatching::LookAtManager(HeartBeatTable::Time now) {
    if (heard_.has_value() && now - *heard_ > managerPatience_) {
        table_.Postpone(now);
    }
}

void HeartBeatWatching::Run() {
    for (;;) {
        // Want of memory, say, costs the news of this round, not the process.
        try {
            TellNews();
        } catch (...) {
        }
        WaitForNews();
    }
}

void HeartBeatWatching::TellNews() {
    for (const auto& [callback, notice] : Decide()) {
        (void)callback(notice.name.data(), notice.name.size(), notice.pid, notice.isLost ? kLost : kRecovered);
    }
}

void HeartBeatWatching::WaitForNews() {
    std::optional<WakeUp::Time> next;
    int descriptor = -1;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        next = table_.NextTick();
        descriptor = receiver_ == nullptr ? -1 : receiver_->Descriptor();
    }
    // Clear may close the descriptor meanwhile; it wakes this thread up, and the next round asks for the new one.
    wakeUp_.Wait(next, descriptor);
}

// Beats first: those that waited while this thread did not run are no misses.
std::vector<HeartBeatWatching::Call> HeartBeatWatching::Decide() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Call> calls = std::exchange(calls_, {});
    for (const ReceivedBeat& beat : receiver_ == nullptr ? std::vector<ReceivedBeat>() : receiver_->Receive()) {
        if (!heard_.has_value()) {
            AddBeat(beat, calls);
        }
    }
    const HeartBeatTable::Time now = std::chrono::steady_clock::now();
    LookAtManager(now);
    for (const HeartBeatTable::Notice& notice : table_.Tick(now)) {
        AddCall(notice, calls);
    }
    return calls;
}

void HeartBeatWatching::AddBeat(const ReceivedBeat& beat, std::vector<Call>& calls) {
    const auto found = watched_.find(beat.name);
    if (found == watched_.end()) {
        return;
    }
    if (!IsOfGroup(beat, found->second.gid)) {
        if (!std::exchange(found->second.wasRefused, true)) {
            LogRefusedBeat(beat, found->second.gid);
        }
        return;
    }
    const auto pid = static_cast<unsigned int>(beat.pid);
    const std::optional<HeartBeatTable::Notice> recovery =
        table_.Beat(beat.name, pid, std::chrono::steady_clock::now());
    if (recovery.has_value()) {
        AddCall(*recovery, calls);
    }
}

void HeartBeatWatching::AddCall(const HeartBeatTable::Notice& notice, std::vector<Call>& calls) {
    const auto found = watched_.find(notice.name);
    if (found != watched_.end() && found->second.callback != nullptr) {
        calls.push_back({found->second.callback, notice});
    }
}

}  // namespace ProcMgr::Posix
