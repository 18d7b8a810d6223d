/// The process manager: everything that has to be there, and the loop.
///
/// One thread does everything: it waits for signals (also those that tell about children), for the first process of
/// each application, for owners, for datagrams and output of applications and for the next deadline. What came is
/// handled, then the turn is ended, which sends the signals, starts the processes and reaps the dead ones.
#ifndef PROCMGR_PROCMGRD_DAEMON_H
#define PROCMGR_PROCMGRD_DAEMON_H

#include <sys/resource.h>

#include <memory>
#include <string>

#include "daemons/procmgrd/conductor.h"
#include "daemons/procmgrd/deadlines.h"
#include "daemons/procmgrd/event_loop.h"
#include "daemons/procmgrd/launch/state_file.h"
#include "daemons/procmgrd/options.h"
#include "daemons/procmgrd/owner_desk.h"
#include "daemons/procmgrd/owner_hearts.h"
#include "daemons/procmgrd/timelines.h"
#include "daemons/service/service_notice.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

class Daemon {
public:
    explicit Daemon(Options options) : options_(std::move(options)) {}

    /// Runs until a signal ends it and everything it started is gone. Returns the exit code: 0 after an orderly stop, 1
    /// when it could not begin, which it has then logged.
    int Run();

private:
    bool Begin();
    bool MakeFolders();
    bool MakeOwnFolder(const char* name, mode_t mode) const;
    bool EndLeftovers();
    bool WatchSignals();
    bool WatchDeadlines();
    bool Listen();
    void MakeTimelines();
    void MakeConductor(const ProcMgr::Posix::HeartBeatSettings& hearts);
    void WatchHearts(const ProcMgr::Posix::HeartBeatSettings& settings);
    void TellReady();
    void TellLife();
    void TellStatus();
    std::string StatusLine() const;
    void OnSignals();
    void OnDeadlines();

    const Options options_;
    ServiceNotice service_;
    std::string status_;  // the last one that was told
    rlimit fileLimit_{};
    EventLoop loop_;
    Deadlines deadlines_;
    ProcMgr::StateFile stateFile_;
    ProcMgr::UniqueFd signals_;
    std::unique_ptr<Timelines> timelines_;
    std::unique_ptr<Conductor> conductor_;
    std::unique_ptr<OwnerHearts> hearts_;
    std::unique_ptr<OwnerDesk> desk_;
};

}  // namespace Procmgrd

#endif
