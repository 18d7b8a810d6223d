/// Watches the heartbeats that connected owners send to the process manager, and logs the lost and the recovered ones.
/// Nothing else follows from a lost one: whether an owner lives is known from its connection.
///
/// A beat counts when the kernel says that it comes from the process that is connected under that name. An owner is
/// watched from its first beat on, so that one that sends none is no cause for alarm.
#ifndef PROCMGR_PROCMGRD_OWNER_HEARTS_H
#define PROCMGR_PROCMGRD_OWNER_HEARTS_H

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>

#include "daemons/procmgrd/deadlines.h"
#include "daemons/procmgrd/event_loop.h"
#include "platform/posix/heartbeat/heartbeat_receiver.h"
#include "platform/posix/heartbeat/heartbeat_settings.h"
#include "platform/posix/heartbeat/heartbeat_table.h"

namespace Procmgrd {

class OwnerHearts {
public:
    OwnerHearts(EventLoop& loop, Deadlines& deadlines, const ProcMgr::Posix::HeartBeatSettings& settings);
    ~OwnerHearts();

    /// Opens the address of `watcher` under the run folder. False with errno; nothing is watched then.
    [[nodiscard]] bool Open(const std::string& runDir, const std::string& watcher);

    void Came(const std::string& owner, pid_t pid);
    void Gone(const std::string& owner);

    /// The deadline HEARTBEAT passed.
    void Tick();

    OwnerHearts(const OwnerHearts&) = delete;
    OwnerHearts& operator=(const OwnerHearts&) = delete;

private:
    struct Heart {
        pid_t pid = 0;
        bool isWatched = false;
    };

    void OnBeats();
    void Take(const ProcMgr::Posix::ReceivedBeat& beat);
    void LookAndArm();

    EventLoop& loop_;
    Deadlines& deadlines_;
    ProcMgr::Posix::HeartBeatTable table_;
    std::unique_ptr<ProcMgr::Posix::HeartBeatReceiver> receiver_;
    std::map<std::string, Heart> hearts_;
};

}  // namespace Procmgrd

#endif
