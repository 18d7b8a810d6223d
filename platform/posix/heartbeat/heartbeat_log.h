/// What the heartbeat library tells the platform log.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_LOG_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_LOG_H

#include <string>

#include "platform/posix/heartbeat/heartbeat_receiver.h"
#include "platform/posix/heartbeat/heartbeat_settings.h"

namespace ProcMgr::Posix {

/// The settings in the environment of this process, read once; what is wrong with them is logged then.
const HeartBeatSettings& ProcessHeartBeatSettings();

/// A beat of a name that is watched came from a process of another group.
void LogRefusedBeat(const ReceivedBeat& beat, unsigned int gid);

}  // namespace ProcMgr::Posix

#endif
