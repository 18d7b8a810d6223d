/// How long to wait for the results of a request, so that the answer is there before the requester gives up.
#ifndef PROCMGR_APP_MANAGER_EFFECTIVE_WAIT_H
#define PROCMGR_APP_MANAGER_EFFECTIVE_WAIT_H

#include <chrono>
#include <cstdint>

namespace ProcMgr {

/// `requestMs`: the time-out of the request. 5000 and more: 500 less; 1000 to 4999: 100 less; 100 to 999: as it is;
/// anything shorter, zero and negative too: 4500.
std::chrono::milliseconds EffectiveWait(int32_t requestMs);

}  // namespace ProcMgr

#endif
