/// One datagram to the address that whoever started this process has given it. Inside the library only.
#ifndef PROCMGR_APP_DATAGRAM_H
#define PROCMGR_APP_DATAGRAM_H

#ifdef __cplusplus
extern "C" {
#endif

/// `address` is a path, or, with a leading '@', a name of the abstract namespace. Waits for room in the receiver's
/// queue for `patienceMs` at most, not at all with 0; raises no signal. Any thread.
///
/// 0 when the receiver's socket has taken the message; otherwise ENOTCONN without an address (NULL or empty),
/// ENAMETOOLONG when it does not fit a Unix socket address, ETIMEDOUT when there was no room in time, or a number of
/// socket(2), connect(2) or send(2).
int ProcmgrAppDatagram(const char* address, const char* text, long patienceMs);

#ifdef __cplusplus
}
#endif

#endif
