#include "platform/include/heartbeat.h"

#include <cerrno>
#include <functional>
#include <string>

#include "platform/posix/heartbeat/heartbeat_sending.h"
#include "platform/posix/heartbeat/heartbeat_watching.h"
#include "platform/posix/heartbeat/heartbeat_wire.h"

using ProcMgr::Posix::HeartBeatSending;
using ProcMgr::Posix::HeartBeatWatching;

namespace {

bool IsName(const char* name, size_t length) {
    return name != nullptr && length >= 1 && length <= ProcMgr::Posix::kHeartBeatNameMax;
}

// The callers are C code: no memory, no thread and no descriptor left are errors like others.
int Guarded(const std::function<int()>& operation) {
    try {
        return operation();
    } catch (...) {
        return EAGAIN;
    }
}

}  // namespace

extern "C" int RegisterSendHeartBeat(const char* name, size_t nameLen, const char* peer, size_t peerLen,
                                     HeartBeatHandle* handle) {
    if (!IsName(name, nameLen) || !IsName(peer, peerLen) || handle == nullptr) {
        return EINVAL;
    }
    return Guarded([&] {
        return HeartBeatSending::Get().Register(std::string(name, nameLen), std::string(peer, peerLen), *handle);
    });
}

extern "C" int UnregisterSendHeartBeat(HeartBeatHandle handle) {
    return Guarded([handle] { return HeartBeatSending::Get().Unregister(handle); });
}

extern "C" int RegisterCheckHeartBeat(const char* name, size_t nameLen, unsigned int gid, HeartBeatNotify callback) {
    if (!IsName(name, nameLen) || callback == nullptr) {
        return EINVAL;
    }
    return Guarded([&] { return HeartBeatWatching::Get().Watch(std::string(name, nameLen), gid, callback); });
}

extern "C" int UnregisterCheckHeartBeat(const char* name, size_t nameLen) {
    if (!IsName(name, nameLen)) {
        return EINVAL;
    }
    return Guarded([&] { return HeartBeatWatching::Get().Unwatch(std::string(name, nameLen)); });
}

extern "C" int DisableAllCheckHeartBeat(void) {
    return Guarded([] {
        HeartBeatWatching::Get().Clear();
        return 0;
    });
}
