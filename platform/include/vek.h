/// @file
/// The resource-service bus: services that clients open by name and send requests to, and queues on which a service
/// sends events to whoever opened them. Blocks of shared memory carry the events.
///
/// What every implementation promises:
///  - every operation may be called from any thread;
///  - requests arrive on threads of the bus; those of one file come one at a time, those of different files may come at
///    the same time;
///  - requests may arrive until the process is gone, also while it exits: the service refuses them then;
///  - no lock of the bus is held while it calls an entry point, so that an entry point may call any operation;
///  - a file record is valid from the begin of its open entry point until its close entry point has returned.
#ifndef PROCMGR_PLATFORM_VEK_H
#define PROCMGR_PLATFORM_VEK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/include/platform_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The queue of a client's file; the bus owns it.
typedef struct VEKQueue* VEKQueueHandle;

/// A pool of blocks; given back with VEKShmDestroyPool.
typedef struct VEKShmPool* VEKShmPoolHandle;

/// A block of shared memory; given back with VEKShmFree, or handed to a queue.
typedef struct VEKShmBlock* VEKShmBlockHandle;

/// A client's open file of a service. `fileName` may be null.
typedef struct VEKMgrFile {
    const char* fileName;  ///< name of the service, or null
    void* priv;            ///< of the bus
} VEKMgrFile;

/// A client's open file of a queue service. `fileName` may be null. `queueHandle` is null until the client reads the
/// queue; it may change at any time, so read it with VEKQfsFileQueue.
typedef struct VekQfsMgrFile {
    const char* fileName;        ///< name of the service, or null
    VEKQueueHandle queueHandle;  ///< of the bus; see VEKQfsFileQueue
    void* priv;                  ///< of the bus
} VekQfsMgrFile;

/// The buffer of a request, for reading the request and for writing the answer. It may be unaligned, and it may be
/// memory that the client can change meanwhile: copy what is to be looked at before looking at it.
typedef struct VEKIoctlArg {
    unsigned long size;  ///< bytes at `addr`
    void* addr;          ///< the request before, the answer after the call
} VEKIoctlArg;

/// The entry points of a service. A negative result of `ioctl` tells the client that the request failed.
typedef struct VEKServiceOps {
    /// A client opens the service: 0 lets it, another number refuses.
    int (*open)(VEKMgrFile* file);

    /// Puts at most `size` bytes from `*offset` on into `buffer` and moves the offset. Returns how many, or a negative
    /// number.
    long (*read)(VEKMgrFile* file, char* buffer, size_t size, long* offset);

    /// The client closed the file or is gone; the last call for this file.
    int (*close)(VEKMgrFile* file);

    /// One request of the client; its answer goes into the same buffer.
    int (*ioctl)(VEKMgrFile* file, unsigned int cmd, VEKIoctlArg* arg);
} VEKServiceOps;

/// The entry points of a queue service.
typedef struct VEKQueueOps {
    /// A client opens the queue: 0 lets it, another number refuses.
    int (*open)(VekQfsMgrFile* file);

    /// The client closed the file or is gone; the last call for this file.
    int (*close)(VekQfsMgrFile* file);
} VEKQueueOps;

/// A pool holds at most `blockCount` blocks of at most `blockSize` bytes each.
typedef struct VEKShmPoolConfig {
    uint32_t blockSize;   ///< bytes
    uint32_t blockCount;  ///< blocks that may be taken at the same time
} VEKShmPoolConfig;

/// Offers a service under `name`. Name and entry points are copied. `timeoutMs` is how long a client that does not say
/// otherwise waits for an answer. Registering a name again that this process serves already replaces its entry points
/// and keeps its clients. Returns 0, or another number on failure.
PROCMGR_PLATFORM_API int VEKRegisterService(const char* name, const VEKServiceOps* ops, uint32_t timeoutMs);

/// As VEKRegisterService, for a queue.
PROCMGR_PLATFORM_API int VEKRegisterQueueService(const char* name, uint32_t timeoutMs, const VEKQueueOps* ops);

/// The queue of the file as it is now, or null as long as its client does not read it.
PROCMGR_PLATFORM_API VEKQueueHandle VEKQfsFileQueue(const VekQfsMgrFile* file);

/// Makes a pool for the file. Returns 0 and the pool, or another number on failure.
PROCMGR_PLATFORM_API int VEKShmRegisterPoolWithConfig(VekQfsMgrFile* file, const VEKShmPoolConfig* config,
                                                      VEKShmPoolHandle* pool);

/// Gives the pool back; blocks that are still in a queue stay readable for the client. Returns 0, or another number
/// for a pool that is not in use.
PROCMGR_PLATFORM_API int VEKShmDestroyPool(VEKShmPoolHandle pool);

/// Takes a block of exactly `size` bytes from the pool. Returns 0 and the block, or another number when the pool has
/// none or `size` is too large.
PROCMGR_PLATFORM_API int VEKShmHandleMalloc(VEKShmPoolHandle pool, size_t size, VEKShmBlockHandle* block);

/// Copies `size` bytes to the begin of the block. Returns 0, or another number when they do not fit.
PROCMGR_PLATFORM_API int VEKShmWrite(VEKShmBlockHandle block, const void* data, size_t size);

/// Gives a block back that was not enqueued. Returns 0, or another number on failure.
PROCMGR_PLATFORM_API int VEKShmFree(VEKShmBlockHandle block);

/// Sends the block to the client. Takes bounded time and does not wait for the client. Returns 0 or more, and the block
/// belongs to the queue; or a negative number, and it stays the caller's.
PROCMGR_PLATFORM_API int VEKDataEnqueue(VEKQueueHandle queue, VEKShmBlockHandle block);

#ifdef __cplusplus
}
#endif

#endif
