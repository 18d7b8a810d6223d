/// Decides which of the watched hearts are lost and which recovered. Pure: it reads no clock and calls nobody; whoever
/// owns it feeds it with beats and with the time. Not synchronised.
///
/// A heart is lost when `misses` beats in a row stay away, half a period granted to those on their way: told once. The
/// first beat after that is its recovery: told once. One that never beat at all is lost that long after the watch
/// began.
///
/// A watcher that was itself stopped, starved or suspended can't say anything about others. So it must call Tick once a
/// period at least; when a call comes more than half a period late, every heart gets the whole time anew. Beats that
/// wait to be received go in before Tick.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_TABLE_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_TABLE_H

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ProcMgr::Posix {

class HeartBeatTable {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Notice {
        std::string name;
        unsigned int pid;  ///< of the last beat; 0 when there was none
        bool isLost;       ///< else it recovered
    };

    HeartBeatTable(std::chrono::milliseconds period, unsigned int misses);

    /// A watch of the same name begins anew.
    void Watch(const std::string& name, Time now);

    /// False when the name was not watched.
    bool Unwatch(const std::string& name);
    void Clear();

    /// A beat of `name`; its recovery, if that is what it is. Nothing happens for a name that is not watched.
    std::optional<Notice> Beat(const std::string& name, unsigned int pid, Time now);

    /// Every heart gets at least the whole time from now on: nobody was there to bring their beats.
    void Postpone(Time now);

    /// The hearts that are lost now.
    std::vector<Notice> Tick(Time now);

    /// When Tick is to be called next at the latest; none while there is nothing to wait for.
    std::optional<Time> NextTick() const;

private:
    struct Watched {
        Time deadline{};
        unsigned int pid = 0;
        bool isLost = false;
    };
    using Entry = std::map<std::string, Watched>::iterator;

    void Arm(Entry entry, Time now);
    void Disarm(Entry entry);

    const std::chrono::steady_clock::duration period_;
    const std::chrono::steady_clock::duration allowance_;
    std::map<std::string, Watched> watched_;
    std::set<std::pair<Time, std::string>> deadlines_;  ///< of those that are not lost
    Time lastTick_{};
};

}  // namespace ProcMgr::Posix

#endif
