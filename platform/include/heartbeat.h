/// @file
/// The heartbeat library: sends the heartbeat of this process to a peer, and watches the heartbeats of named processes.
///
/// What every implementation promises:
///  - every operation may be called from any thread;
///  - notices come one at a time, on a thread of the library's own;
///  - stopping a watch does not wait for a running notice when called from it; a notice may still arrive just after the
///    watch was stopped;
///  - the period of the beats and the number of misses that count as lost belong to the library.
#ifndef PROCMGR_PLATFORM_HEARTBEAT_H
#define PROCMGR_PLATFORM_HEARTBEAT_H

#include <stddef.h>

#include "platform/include/platform_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A heartbeat that is being sent; owned by the library, given back with UnregisterSendHeartBeat.
typedef struct HeartBeatSender* HeartBeatHandle;

/// `name`: exactly `nameLen` bytes, not terminated. `status`: 1 the heartbeat is lost, 0 it recovered; other values are
/// to be ignored. Returns 1 when handled, 0 when ignored. Told once per loss and once per recovery.
typedef int (*HeartBeatNotify)(const char* name, size_t nameLen, unsigned int pid, int status);

/// Starts sending this process's heartbeat, under `name`, to `peer`. Names are 1 to 256 bytes. Returns 0 and a handle
/// to stop it with, or another number on failure.
PROCMGR_PLATFORM_API int RegisterSendHeartBeat(const char* name, size_t nameLen, const char* peer, size_t peerLen,
                                               HeartBeatHandle* handle);

/// Stops sending and releases the handle. Returns 0, or another number for a handle that is not in use.
PROCMGR_PLATFORM_API int UnregisterSendHeartBeat(HeartBeatHandle handle);

/// Watches the heartbeat of the process `name`, which runs in the group `gid`. A watch of the same name is replaced.
/// Returns 0, or another number on failure.
PROCMGR_PLATFORM_API int RegisterCheckHeartBeat(const char* name, size_t nameLen, unsigned int gid,
                                                HeartBeatNotify callback);

/// Stops watching. Returns 0, or another number when the name was not watched.
PROCMGR_PLATFORM_API int UnregisterCheckHeartBeat(const char* name, size_t nameLen);

/// Stops watching every name. Returns 0.
PROCMGR_PLATFORM_API int DisableAllCheckHeartBeat(void);

#ifdef __cplusplus
}
#endif

#endif
