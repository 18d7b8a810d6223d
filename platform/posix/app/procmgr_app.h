/// What an application says of itself when its manifest has `is_reporting`: that it is ready, and that it stops.
///
/// The process manager gives each such application an address of its own in the environment variable
/// PROCMGR_APP_SOCKET and knows the sender from the kernel. Both operations may be called from any thread, as often as
/// wanted; they wait at most two seconds and raise no signal.
///
/// They return 0 when the process manager's socket has taken the report. Otherwise -1, with errno:
///   ENOTCONN      PROCMGR_APP_SOCKET is not set or empty: the process was not started as a self-reporting application
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

#define PROCMGR_APP_API __attribute__((visibility("default")))

/// The application is ready: those that depend on it may start.
PROCMGR_APP_API int ProcmgrAppReady(void);

/// The application is about to stop.
PROCMGR_APP_API int ProcmgrAppStopping(void);

#ifdef __cplusplus
}
#endif

#endif
