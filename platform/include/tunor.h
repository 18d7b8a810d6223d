/// @file
/// The pipe library: one connection of a process to a named peer (the process manager), over which both sides send
/// one-way requests and the client makes calls that are answered.
///
/// What every implementation promises:
///  - every operation may be called from any thread, also at the same time on the same descriptor;
///  - the data of a request is copied before the call returns; the caller keeps its buffer;
///  - the request handler runs on a thread of the library's own, one request at a time per descriptor, and never on a
///    thread that is inside one of these calls; it may run before TunorOpen has returned;
///  - sending takes bounded time and does not wait for a busy handler, nor does the answer to a call;
///  - no call raises SIGPIPE.
#ifndef PROCMGR_PLATFORM_TUNOR_H
#define PROCMGR_PLATFORM_TUNOR_H

#include <stdint.h>

#include "platform/include/platform_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A request: `size` bytes at `data`. May be unaligned when it comes from the library.
typedef struct TunorRequest {
    void* data;     ///< the bytes
    uint32_t size;  ///< how many
} TunorRequest;

/// The answer to a call: `size` bytes at `data`, not terminated. `data` may be null.
typedef struct TunorResponse {
    void* data;     ///< the bytes
    uint32_t size;  ///< how many
} TunorResponse;

/// Called for each request of the peer. `request` may be null, its size may be anything, its data may be null.
/// The data is valid during the call only. The handler sends no answer.
typedef void (*TunorRequestHandler)(int fd, TunorRequest* request);

/// To whom TunorOpen connects, and how. Nothing of it is needed after the call.
typedef struct TunorOpenParam {
    const char* peerName;         ///< name of the peer, "PROCMGR" for the process manager; copied
    uint32_t groupId;             ///< group id of the calling process
    uint32_t timeoutMs;           ///< how long to keep trying while the peer is not there
    TunorRequestHandler handler;  ///< may be null: requests of the peer are then dropped
} TunorOpenParam;

/// Connects to the peer, waiting for it until the time-out.
/// Returns the descriptor (> 0); -11 when the caller should try again at once; 0 or another negative number on failure,
/// with errno set to the reason (EACCES: the peer refuses this user; EADDRINUSE: a live process of the same name is
/// connected already; ETIMEDOUT: the peer did not come up in time).
PROCMGR_PLATFORM_API int TunorOpen(const TunorOpenParam* param);

/// Sends one request without waiting for an answer. Returns 0, or a negative number on failure.
PROCMGR_PLATFORM_API int TunorSendRequest(int fd, const TunorRequest* request);

/// Sends an answer to the peer's request. Returns 0, or a negative number on failure.
PROCMGR_PLATFORM_API int TunorSendResponse(int fd, const TunorResponse* response);

/// Sends a request and waits for its answer as long as the connection lives. Returns 0, or a negative number on
/// failure. On success `response->data` belongs to the library and stays valid until the same thread's next call on
/// this descriptor, or until TunorClosePipe.
PROCMGR_PLATFORM_API int TunorRPCSync(int fd, const TunorRequest* request, TunorResponse* response);

/// As TunorRPCSync, but gives up after `timeoutMs`; a later answer is dropped.
PROCMGR_PLATFORM_API int TunorTimedRPCSync(int fd, const TunorRequest* request, TunorResponse* response,
                                           uint32_t timeoutMs);

/// Closes the connection and waits for a running handler to return, unless called from that handler.
/// Returns 0, or a negative number when the descriptor is not open.
PROCMGR_PLATFORM_API int TunorClosePipe(int fd);

#ifdef __cplusplus
}
#endif

#endif
