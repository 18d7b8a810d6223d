/// @file
/// The client of the resource-service bus, for whoever writes a system-state manager: opens a service by its name,
/// sends it requests and takes their answers; opens an event queue and waits for events. C, with no dependency but the
/// C library. docs/resource-bus.md describes what travels.
///
///     ProcmgrSsFile* file = NULL;
///     int32_t result = 0;
///     int error = ProcmgrSsOpen(NULL, "grpowner", 2000, &file);
///     if (error == 0) {
///         error = ProcmgrSsIoctl(file, 6, buffer, PROCMGR_SS_BUFFER_SIZE, 0, &result);
///         ProcmgrSsClose(file);
///     }
///
/// Errors. Every operation that can fail returns 0, or a negative errno (from -4095 to -1); what it puts out is written
/// only on success, unless it says otherwise. The service's own result never mixes with them.
///   -EINVAL        an argument is wrong: a null pointer, a name that is empty, over 64 bytes or holds a '/' or a
///   control
///                  character, a size of 0 or over PROCMGR_SS_BUFFER_MAX
///   -ENAMETOOLONG  the run directory makes the path too long for a socket (107 bytes)
///   -ENOENT        nobody offers this service: there is no socket
///   -ECONNREFUSED  whoever offered it is gone: nobody listens on the socket
///   -EPERM         the process behind the socket runs as a user that is not trusted: neither root, nor the own user,
///                  nor the owner of the folder RUNDIR/vek, nor the one whose number PROCMGR_SERVER_UID holds
///   -EACCES        the service's rules do not grant this user the request (or anything at all, on opening). Nothing
///   was
///                  done; the file stays usable for other requests
///   -EAGAIN        the service had all the connections it takes for as long as the time-out
///   -ETIMEDOUT     no answer within the time-out. The service goes on with the work; its answer is dropped
///   -EBUSY         within the time-out, the work of an earlier request of this file did not end. This request was not
///                  done and will not be
///   -ENOTTY        a request to an event queue, or waiting for events of a service that is none
///   -EIO           the service's open failed
///   -EPROTO        what answers is no service of this bus. The file is lost
///   -EPIPE         the connection is lost: the service ended, or ended the connection. Every further call fails the
///                  same way; close the file and open it again
///   -ENOMEM, -EMFILE, ...  as the system reported it
///
/// Threads. Files are independent of each other. One file has one request at a time: calls of several threads take
/// turns, and waiting for the turn counts towards the time-out. So open a second file to query while a change runs.
/// Opening makes no thread, and nothing raises SIGPIPE. Closing is allowed when no other call is on the file.
/// All descriptors are close-on-exec; after a fork the child must not use its parent's files.
#ifndef PROCMGR_SS_H
#define PROCMGR_SS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what the library offers.
#define PROCMGR_SS_API __attribute__((visibility("default")))

/// Bytes of the buffer that the group owner's service takes; with another size it answers 0xff0f0000 (as int32).
#define PROCMGR_SS_BUFFER_SIZE 3904

/// Bytes of the largest buffer that the bus carries.
#define PROCMGR_SS_BUFFER_MAX 65520

/// An open service.
typedef struct ProcmgrSsFile ProcmgrSsFile;

/// An open event queue.
typedef struct ProcmgrSsQueue ProcmgrSsQueue;

/// Opens the service `name`. `runDir` null or empty: PROCMGR_RUN_DIR, or else /run/procmgr. Waits at most `timeoutMs`
/// for the service to answer; it does not wait for a service that is not there, but returns -ENOENT or -ECONNREFUSED
/// at once. `timeoutMs` 0 is 2000. On success the caller owns the file and gives it back with ProcmgrSsClose.
PROCMGR_SS_API int ProcmgrSsOpen(const char* runDir, const char* name, uint32_t timeoutMs, ProcmgrSsFile** file);

/// How long the service lets a request take that brings no time-out of its own, in ms.
PROCMGR_SS_API uint32_t ProcmgrSsDefaultTimeoutMs(const ProcmgrSsFile* file);

/// Sends the request `cmd` with `size` bytes of `buffer` and waits for the answer. `timeoutMs` is how long the request
/// may take, instead of the service's default (longer or shorter, at most 2147483647); 0 leaves it at the default. The
/// service itself answers when the time is up; the call returns 200 ms later at the latest.
///
/// Returns 0 when the service answered: the buffer then holds what it left there (all `size` bytes) and `*result` its
/// result, which may be negative. Otherwise a negative errno, with the buffer as it was.
/// Signals do not interrupt the call.
PROCMGR_SS_API int ProcmgrSsIoctl(ProcmgrSsFile* file, uint32_t cmd, void* buffer, size_t size, uint32_t timeoutMs,
                                  int32_t* result);

/// Reads at most `size` bytes at `*offset` and moves the offset, as the service's read sees fit. Time-out, buffer and
/// errors as ProcmgrSsIoctl; `*result` is the service's: how many bytes were read, or a negative number. `*offset` must
/// be what the service expects, 0 at first.
PROCMGR_SS_API int ProcmgrSsRead(ProcmgrSsFile* file, void* buffer, size_t size, int64_t* offset, uint32_t timeoutMs,
                                 int32_t* result);

/// Closes the file and frees it; null is allowed. Does not wait: a request whose time-out passed still runs to its end.
PROCMGR_SS_API void ProcmgrSsClose(ProcmgrSsFile* file);

/// Opens the event queue `name` and begins to read it. Arguments and errors as ProcmgrSsOpen; -ENOTTY when `name` is no
/// queue. Events from before the opening are not seen. Give it back with ProcmgrSsCloseQueue.
PROCMGR_SS_API int ProcmgrSsOpenQueue(const char* runDir, const char* name, uint32_t timeoutMs, ProcmgrSsQueue** queue);

/// A descriptor to poll for POLLIN: readable when an event, or the loss of the connection, waits. It may be readable
/// when there is none; ProcmgrSsWaitEvent with a time-out of 0 finds out. Do not read it and do not close it.
PROCMGR_SS_API int ProcmgrSsQueueFd(const ProcmgrSsQueue* queue);

/// Waits for the next event and copies it to `buffer`, without a terminator; `*size` becomes its length. `timeoutMs`:
/// how long to wait, 0 not at all, negative for ever.
///
/// Returns 0, or a negative errno: -ETIMEDOUT no event came; -EINTR a signal handler ran while it waited; -EMSGSIZE the
/// event is longer than `capacity`: it waits for the next call, and `*size` says how long it is. An event of the group
/// owner is the number of a system state in decimal digits, at most 10 bytes.
///
/// The service holds at most 64 events for a reader, and drops newer ones until the reader has taken some.
PROCMGR_SS_API int ProcmgrSsWaitEvent(ProcmgrSsQueue* queue, int32_t timeoutMs, void* buffer, size_t capacity,
                                      size_t* size);

/// Closes the queue and frees it, events that wait included; null is allowed.
PROCMGR_SS_API void ProcmgrSsCloseQueue(ProcmgrSsQueue* queue);

#ifdef __cplusplus
}
#endif

#endif
