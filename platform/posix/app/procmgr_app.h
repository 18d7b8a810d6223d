/// @file
/// What an application says of itself: that it is ready, that it stops (its manifest has `is_reporting` then), and that
/// its heart beats (`heart_beat_switch`).
///
/// The process manager gives each such application an address of its own in the environment variable
/// PROCMGR_APP_SOCKET and knows the sender from the kernel. Every operation may be called from any thread, as often as
/// wanted. One that sends waits at most two seconds and raises no signal.
///
/// They return 0 when the process manager's socket has taken the message. Otherwise -1, with errno:
///   ENOTCONN      PROCMGR_APP_SOCKET is not set or empty: the manifest has neither key, or nobody started this process
///   ENAMETOOLONG  the address does not fit a Unix socket address
///   ENOENT, ECONNREFUSED  the process manager is gone
///   EACCES        this user may not send there
///   ETIMEDOUT     the process manager did not read in time
/// or another number of socket(2), connect(2) or send(2).
#ifndef PROCMGR_APP_H
#define PROCMGR_APP_H

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what the library offers.
#define PROCMGR_APP_API __attribute__((visibility("default")))

/// The application is ready: those that depend on it may start.
PROCMGR_APP_API int ProcmgrAppReady(void);

/// The application is about to stop.
PROCMGR_APP_API int ProcmgrAppStopping(void);

/// One heartbeat, now. Called from the loop that does the application's work, once per period
/// (ProcmgrAppBeatPeriodMs) or more often, it says that the loop still turns.
PROCMGR_APP_API int ProcmgrAppBeat(void);

/// Milliseconds from beat to beat: PROCMGR_HEARTBEAT_PERIOD_MS, which the process manager sets; 1000 without it.
PROCMGR_APP_API int ProcmgrAppBeatPeriodMs(void);

/// Beats from now on, at once and then once per period, on a thread of its own that blocks every signal. Such a heart
/// stops only when the whole process does; it says nothing about the other threads. 0 too when it beats already; -1,
/// with errno, when the first beat cannot be sent or there is no thread. Later beats that cannot be sent are left out.
/// A child made by fork does not beat.
PROCMGR_APP_API int ProcmgrAppStartBeating(void);

/// No beat of that thread is sent after it has returned. Not from a signal handler.
PROCMGR_APP_API void ProcmgrAppStopBeating(void);

#ifdef __cplusplus
}
#endif

#endif
