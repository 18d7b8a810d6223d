#include "platform/posix/heartbeat/heartbeat_table.h"

#include <algorithm>

namespace ProcMgr::Posix {

HeartBeatTable::HeartBeatTable(std::chrono::milliseconds period, unsigned int misses)
    : period_(period), allowance_(period_ * misses + period_ / 2) {
}

void HeartBeatTable::Watch(const std::string& name, Time now) {
    const Entry entry = watched_.try_emplace(name).first;
    Disarm(entry);
    entry->second = Watched{};
    Arm(entry, now);
}

bool HeartBeatTable::Unwatch(const std::string& name) {
    const Entry entry = watched_.find(name);
    if (entry == watched_.end()) {
        return false;
    }
    Disarm(entry);
    watched_.erase(entry);
    return true;
}

void HeartBeatTable::Clear() {
    watched_.clear();
    deadlines_.clear();
}

std::optional<HeartBeatTable::Notice> HeartBeatTable::Beat(const std::string& name, unsigned int pid, Time now) {
    const Entry entry = watched_.find(name);
    if (entry == watched_.end()) {
        return std::nullopt;
    }
    Disarm(entry);
    Arm(entry, now);
    Watched& watched = entry->second;
    watched.pid = pid;
    if (!std::exchange(watched.isLost, false)) {
        return std::nullopt;
    }
    return Notice{name, pid, false};
}

void HeartBeatTable::Postpone(Time now) {
    std::set<std::pair<Time, std::string>> postponed;
    for (const auto& [deadline, name] : deadlines_) {
        Watched& watched = watched_.find(name)->second;
        watched.deadline = std::max(deadline, now + allowance_);
        postponed.emplace(watched.deadline, name);
    }
    deadlines_.swap(postponed);
}

std::vector<HeartBeatTable::Notice> HeartBeatTable::Tick(Time now) {
    const bool isLate = now - lastTick_ > period_ + period_ / 2;
    lastTick_ = now;
    if (isLate) {
        Postpone(now);
    }
    std::vector<Notice> lost;
    while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
        const Entry entry = watched_.find(deadlines_.begin()->second);
        Disarm(entry);
        entry->second.isLost = true;
        lost.push_back({entry->first, entry->second.pid, true});
    }
    return lost;
}

std::optional<HeartBeatTable::Time> HeartBeatTable::NextTick() const {
    if (deadlines_.empty()) {
        return std::nullopt;
    }
    return std::min(lastTick_ + period_, deadlines_.begin()->first);
}

void HeartBeatTable::Arm(Entry entry, Time now) {
    if (deadlines_.empty()) {
        // Nobody had to call Tick until now.
        lastTick_ = now;
    }
    entry->second.deadline = now + allowance_;
    deadlines_.emplace(entry->second.deadline, entry->first);
}

void HeartBeatTable::Disarm(Entry entry) {
    deadlines_.erase({entry->second.deadline, entry->first});
}

}  // namespace ProcMgr::Posix
