// Bounded copies, and heartbeats that nobody sends or watches.
#include <cerrno>
#include <cstring>

#include "platform/include/bounded_copy.h"
#include "platform/include/heartbeat.h"

int memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    if (src == nullptr || count > destMax) {
        memset(dest, 0, destMax);
        return src == nullptr ? EINVAL : ERANGE;
    }
    memmove(dest, src, count);
    return 0;
}

int memset_s(void* dest, size_t destMax, int value, size_t count) {
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    memset(dest, value, count < destMax ? count : destMax);
    return count > destMax ? ERANGE : 0;
}

int RegisterSendHeartBeat(const char* /*name*/, size_t /*nameLen*/, const char* /*peer*/, size_t /*peerLen*/,
                          HeartBeatHandle* handle) {
    *handle = nullptr;
    return 0;
}

int UnregisterSendHeartBeat(HeartBeatHandle /*handle*/) {
    return 0;
}

int RegisterCheckHeartBeat(const char* /*name*/, size_t /*nameLen*/, unsigned int /*gid*/,
                           HeartBeatNotify /*callback*/) {
    return 0;
}

int UnregisterCheckHeartBeat(const char* /*name*/, size_t /*nameLen*/) {
    return 0;
}

int DisableAllCheckHeartBeat(void) {
    return 0;
}
