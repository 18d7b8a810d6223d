/// Heartbeats for which the process manager vouches, on their way from the pipe to the heartbeat library of a group
/// owner. Thread-safe.
#ifndef PROCMGR_PLATFORM_POSIX_APP_BEAT_H
#define PROCMGR_PLATFORM_POSIX_APP_BEAT_H

#include <cstdint>
#include <string>

namespace ProcMgr {

/// A beat of an application. An empty name is the process manager's own beat: as long as it comes, the process manager
/// is there to pass on those of others.
struct AppBeat {
    std::string name;
    uint32_t pid = 0;
    uint32_t gid = 0;  ///< what the application's process was started with
};

/// Takes each beat. Runs on the thread that reads the pipe, so that a beat never waits behind a handler of the
/// application; it must not block, nor throw.
using AppBeatHandler = void (*)(const AppBeat& beat) noexcept;

/// Replaces the handler; null drops later beats.
void SetAppBeatHandler(AppBeatHandler handler);

/// For the pipe: a beat came.
void TakeAppBeat(const AppBeat& beat);

/// True once any beat came, whether there was a handler or not.
bool HasAppBeatCome();

}  // namespace ProcMgr

#endif
