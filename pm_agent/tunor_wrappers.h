/// The pipe library's operations under the names of this library: each calls the function of the same name and returns
/// its result.
#ifndef PROCMGR_PM_AGENT_TUNOR_WRAPPERS_H
#define PROCMGR_PM_AGENT_TUNOR_WRAPPERS_H

#include <cstdint>

#include "platform/include/tunor.h"

namespace ProcMgr {

inline int ProcMgrTunorSendRequest(int fd, const TunorRequest* request) {
    return TunorSendRequest(fd, request);
}

inline int ProcMgrTunorSendResponse(int fd, const TunorResponse* response) {
    return TunorSendResponse(fd, response);
}

inline int ProcMgrTunorRPCSync(int fd, const TunorRequest* request, TunorResponse* response) {
    return TunorRPCSync(fd, request, response);
}

inline int ProcMgrTunorTimedRPCSync(int fd, const TunorRequest* request, TunorResponse* response, uint32_t timeoutMs) {
    return TunorTimedRPCSync(fd, request, response, timeoutMs);
}

inline int ProcMgrTunorClosePipe(int fd) {
    return TunorClosePipe(fd);
}

}  // namespace ProcMgr

#endif
