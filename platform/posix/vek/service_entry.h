/// What a service registered, and the calls into it. A service that throws has failed.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_SERVICE_ENTRY_H
#define PROCMGR_PLATFORM_POSIX_VEK_SERVICE_ENTRY_H

#include <cstdint>

#include "platform/include/vek.h"

namespace ProcMgr {

struct BusFile;
struct BusWork;

struct ServiceEntry {
    bool isQueue = false;
    VEKServiceOps ops = {};     ///< of a service
    VEKQueueOps queueOps = {};  ///< of a queue
    uint32_t timeoutMs = 0;
};

/// Does the work with the entry point that it is for; the result, and what the service left in the payload, are in
/// `work`. An entry point that was not given succeeds at opening and closing, and is -ENOTTY otherwise.
void CallService(const ServiceEntry& entry, BusFile& file, BusWork& work) noexcept;

}  // namespace ProcMgr

#endif
