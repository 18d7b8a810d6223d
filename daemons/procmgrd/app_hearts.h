/// Passes the heartbeats of applications on to their owners, which watch them.
///
/// A beat comes over the address of the application, so that the owner can take it for what it is; it goes on with the
/// process and the group that the application really has. More of them than anybody needs are dropped, so that an
/// application that beats without a pause costs its owner nothing.
///
/// An owner that has such applications also gets the process manager's own beat, twice in a period. From that it knows
/// whether a beat that it misses could have reached it.
#ifndef PROCMGR_PROCMGRD_APP_HEARTS_H
#define PROCMGR_PROCMGRD_APP_HEARTS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "daemons/procmgrd/deadlines.h"
#include "daemons/procmgrd/supervisor.h"

namespace Procmgrd {

class AppHearts {
public:
    using Clock = std::chrono::steady_clock;

    /// To an owner, if it is there; the process manager's own beat has no name in its key.
    using Send = std::function<void(const AppKey& key, pid_t pid, gid_t gid)>;

    AppHearts(Deadlines& deadlines, std::chrono::milliseconds period, Send send)
        : deadlines_(deadlines), period_(period), send_(std::move(send)) {}

    /// From the start of the process to its end.
    void Came(const AppKey& key, pid_t pid, gid_t gid);
    void Gone(const AppKey& key);

    /// It said that its heart beats. Nothing happens for one that did not come.
    void Beat(const AppKey& key, Clock::time_point now);

    /// The deadline PULSE passed.
    void Pulse();

    AppHearts(const AppHearts&) = delete;
    AppHearts& operator=(const AppHearts&) = delete;

private:
    struct Heart {
        pid_t pid = 0;
        gid_t gid = 0;
        Clock::time_point next;  ///< earlier beats are dropped
    };

    Deadlines& deadlines_;
    const std::chrono::milliseconds period_;
    const Send send_;
    std::map<AppKey, Heart> hearts_;
};

}  // namespace Procmgrd

#endif
