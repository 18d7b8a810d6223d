/// The numbers behind the handles of pools, blocks and queues, and the open files of queue services by their address. A
/// number is never used twice, so a handle that is no longer good is recognised. Thread-safe.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_HANDLES_H
#define PROCMGR_PLATFORM_POSIX_VEK_HANDLES_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "platform/include/vek.h"
#include "platform/posix/vek/event_queue.h"
#include "platform/posix/vek/shm_pool.h"

namespace ProcMgr {

class VekHandles {
public:
    /// Makes the queue of a new file; RemoveFile gives it back, and the pools that the service left.
    std::shared_ptr<EventQueue> AddFile(const VekQfsMgrFile* file, VEKQueueHandle& handle);
    void RemoveFile(const VekQfsMgrFile* file);

    // What the functions of vek.h do. 0 or an errno; Enqueue a negative errno.
    int AddPool(const VekQfsMgrFile* file, const VEKShmPoolConfig& config, VEKShmPoolHandle& handle);
    int DestroyPool(VEKShmPoolHandle handle);
    int TakeBlock(VEKShmPoolHandle pool, size_t size, VEKShmBlockHandle& handle);
    int WriteBlock(VEKShmBlockHandle handle, const void* data, size_t size);
    int FreeBlock(VEKShmBlockHandle handle);
    int Enqueue(VEKQueueHandle queue, VEKShmBlockHandle block);

private:
    struct File {
        VEKQueueHandle handle;
        std::shared_ptr<EventQueue> queue;
    };
    struct Pool {
        std::shared_ptr<ShmPool> memory;
        std::shared_ptr<EventQueue> queue;
    };
    struct Block {
        std::shared_ptr<ShmPool> memory;
        uint32_t index;
    };

    using Pools = std::map<VEKShmPoolHandle, Pool>;

    Pools::iterator ErasePool(Pools::iterator pool);
    std::shared_ptr<EventQueue> FindQueue(const VekQfsMgrFile* file);
    Pool FindPool(VEKShmPoolHandle handle);
    Block FindBlock(VEKShmBlockHandle handle);

    std::mutex mutex_;
    uintptr_t lastNumber_ = 0;  // guarded by mutex_, as is all below
    std::map<const VekQfsMgrFile*, File> files_;
    std::map<VEKQueueHandle, std::shared_ptr<EventQueue>> queues_;
    Pools pools_;
    std::map<VEKShmBlockHandle, Block> blocks_;
};

}  // namespace ProcMgr

#endif
