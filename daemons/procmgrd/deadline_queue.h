/// Deadlines by key, ordered by time. Pure.
#ifndef PROCMGR_PROCMGRD_DEADLINE_QUEUE_H
#define PROCMGR_PROCMGRD_DEADLINE_QUEUE_H

#include <chrono>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace Procmgrd {

template <typename Key>
class DeadlineQueue {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// A key has one deadline; a second one replaces it.
    void Arm(const Key& key, Time when) {
        Disarm(key);
        times_[key] = when;
        queue_.insert({when, key});
    }

    void Disarm(const Key& key) {
        const auto found = times_.find(key);
        if (found != times_.end()) {
            queue_.erase({found->second, key});
            times_.erase(found);
        }
    }

    bool IsEmpty() const { return queue_.empty(); }

    /// The earliest; only when not empty.
    Time Next() const { return queue_.begin()->first; }

    /// Removes and returns the keys whose time has come, the earliest first.
    std::vector<Key> TakeDue(Time now) {
        std::vector<Key> due;
        while (!queue_.empty() && queue_.begin()->first <= now) {
            due.push_back(queue_.begin()->second);
            times_.erase(due.back());
            queue_.erase(queue_.begin());
        }
        return due;
    }

private:
    std::map<Key, Time> times_;
    std::set<std::pair<Time, Key>> queue_;
};

}  // namespace Procmgrd

#endif
