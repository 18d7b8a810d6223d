/// The daemon's deadlines: one queue, one timer descriptor of the steady clock.
#ifndef PROCMGR_PROCMGRD_DEADLINES_H
#define PROCMGR_PROCMGRD_DEADLINES_H

#include <cstdint>
#include <utility>
#include <vector>

#include "daemons/procmgrd/deadline_queue.h"
#include "daemons/procmgrd/supervisor.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

enum class DeadlineKind : uint8_t {
    TERMINATION,  ///< of one application
    LEFTOVERS,    ///< look again for what ended applications left behind
    STOP,         ///< of the daemon
    HEARTBEAT,    ///< look whether an owner's heart stopped
    PULSE,        ///< tell owners that their applications' beats would reach them
    REPORTS,      ///< listen to an application again that had told too much
    SERVICE,      ///< tell whoever started the daemon that it lives
};

using DeadlineKey = std::pair<DeadlineKind, AppKey>;

class Deadlines {
public:
    /// False with errno when there is no timer.
    [[nodiscard]] bool Open();

    /// In `delayMs` from now; replaces the earlier deadline of the key.
    void Arm(DeadlineKind kind, const AppKey& key, uint32_t delayMs);
    void Disarm(DeadlineKind kind, const AppKey& key);

    /// To be called when Fd() is readable: removes and returns those that passed, the earliest first.
    std::vector<DeadlineKey> TakeDue();

    int Fd() const { return timer_.Get(); }

private:
    void SetTimer();

    DeadlineQueue<DeadlineKey> queue_;
    ProcMgr::UniqueFd timer_;
};

}  // namespace Procmgrd

#endif
