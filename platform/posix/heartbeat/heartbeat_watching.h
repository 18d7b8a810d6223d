/// The watching half: one thread for all names that this process watches.
///
/// A beat of a watched name counts when its sender is of the group that the watch names. A watcher that is not root
/// can't have processes put into other groups than its own, so it takes its own group too.
///
/// Beats come in two ways: from the process manager, through the pipe, which knows whose beat it is; or straight from
/// the sender to the address of this process, where the kernel vouches for the group, but nobody for the name. So the
/// second kind counts only in a process that has never heard of a process manager.
///
/// A watcher that hears the process manager also knows when it does not: while that is held up, beats that it should
/// have brought are no misses, and afterwards every heart gets the whole time anew.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_WATCHING_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_WATCHING_H

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/include/heartbeat.h"
#include "platform/posix/common_posix/app_beat.h"
#include "platform/posix/heartbeat/heartbeat_receiver.h"
#include "platform/posix/heartbeat/heartbeat_settings.h"
#include "platform/posix/heartbeat/heartbeat_table.h"
#include "platform/posix/heartbeat/wake_up.h"

namespace ProcMgr::Posix {

/// Safe for any thread, callbacks of its own included: they run without a lock.
class HeartBeatWatching {
public:
    /// The one of this process; never destroyed.
    static HeartBeatWatching& Get();

    /// Returns 0 or an errno.
    int Watch(const std::string& name, unsigned int gid, HeartBeatNotify callback);

    /// Returns 0, or ENOENT when the name was not watched.
    int Unwatch(const std::string& name);

    /// Gives up the address too.
    void Clear();

    /// A beat that the process manager vouches for.
    void Take(const AppBeat& beat);

private:
    struct Watched {
        unsigned int gid;
        HeartBeatNotify callback;
        bool wasRefused = false;  ///< logged once per watch
    };
    struct Call {
        HeartBeatNotify callback;
        HeartBeatTable::Notice notice;
    };

    explicit HeartBeatWatching(const HeartBeatSettings& settings);
    int OpenLocked();
    void Run();
    void TellNews();
    void WaitForNews();
    std::vector<Call> Decide();
    void LookAtManager(HeartBeatTable::Time now);
    void AddBeat(const ReceivedBeat& beat, std::vector<Call>& calls);
    void AddCall(const HeartBeatTable::Notice& notice, std::vector<Call>& calls);

    const std::string runDirectory_;
    const std::chrono::steady_clock::duration managerPatience_;
    const WakeUp wakeUp_;

    std::mutex mutex_;  ///< guards all below
    HeartBeatTable table_;
    std::map<std::string, Watched> watched_;
    std::unique_ptr<HeartBeatReceiver> receiver_;  ///< from the first watch to Clear, where no manager was heard
    std::optional<HeartBeatTable::Time> heard_;    ///< the process manager, the last time
    std::vector<Call> calls_;                      ///< to be made by the thread
    bool isRunning_ = false;
};

}  // namespace ProcMgr::Posix

#endif
