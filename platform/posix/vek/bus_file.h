/// A client's connection and the file that it opened.
///
/// Its way: connected -> (open request) opened by the service -> requests, one at a time -> ended (the client went
/// away, or broke the rules) -> closed by the service -> removed. A request that is out of time is answered by an error
/// while its work goes on; the next one then waits for the work, within its own time.
///
/// Everything belongs to the service's reader thread, except that a worker has the record and `*running` from the
/// moment it is given the work until it posts that it is done.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_BUS_FILE_H
#define PROCMGR_PLATFORM_POSIX_VEK_BUS_FILE_H

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/include/vek.h"
#include "platform/posix/common_posix/access_rules.h"
#include "platform/posix/common_posix/unique_fd.h"
#include "platform/posix/vek/event_queue.h"
#include "platform/posix/vek/vek_frame.h"

namespace ProcMgr {

using BusClock = std::chrono::steady_clock;

/// One call into the service. `head` is the client's request; op 0 is the close that nobody requests.
struct BusWork {
    VekFrameHead head = {};
    std::vector<char> payload;  ///< of the request, then of the answer
    int64_t result = 0;
    BusClock::time_point deadline = BusClock::time_point::max();
    bool isAnswered = false;  ///< the client was told, or nobody is to be told
};

struct BusFile {
    uint64_t id = 0;
    ucred peer = {};
    AccessRules::Grants grants = 0;
    std::shared_ptr<const UniqueFd> socket;  ///< null once ended
    BusClock::time_point openDeadline;       ///< for the open request
    bool isWatched = false;                  ///< the next packet wakes the reader
    bool saidOpen = false;
    bool isOpen = false;  ///< the service opened it and has not been asked to close it
    bool isRead = false;  ///< the queue is being read
    std::shared_ptr<BusWork> running;
    std::shared_ptr<BusWork> waiting;
    VEKMgrFile record = {};                ///< of a service
    VekQfsMgrFile queueRecord = {};        ///< of a queue
    VEKQueueHandle queueHandle = nullptr;  ///< what the record shows while the queue is being read
    std::shared_ptr<EventQueue> queue;     ///< null for a service

    /// A client that waits for an answer is not listened to.
    bool MayRead() const { return socket != nullptr && (running == nullptr || running->isAnswered) && !waiting; }
};

}  // namespace ProcMgr

#endif
