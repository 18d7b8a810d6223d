/// The events of one open file: the pool that they lie in, and the socket on which they are announced. An event is with
/// the client from its announcement until the client hands the block back; kEventsMax of them at most. Thread-safe; no
/// operation waits for the client.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_EVENT_QUEUE_H
#define PROCMGR_PLATFORM_POSIX_VEK_EVENT_QUEUE_H

#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/include/vek.h"
#include "platform/posix/common_posix/unique_fd.h"
#include "platform/posix/vek/shm_pool.h"
#include "platform/posix/vek/vek_frame.h"

namespace ProcMgr {

class EventQueue {
public:
    static constexpr uint32_t kEventsMax = 64;

    /// The client begins to read: shows the handle in the record, sends the answer to the client and announces the
    /// pool, if there is one. No event comes in between. Returns 0 or a negative errno.
    [[nodiscard]] int Start(std::shared_ptr<const UniqueFd> socket, const VekFrameHead& answer, VekQfsMgrFile& record,
                            VEKQueueHandle handle);
    /// The client is gone; what it has stays as it is.
    void Close();

    /// The client has read a block. Returns null, or what is wrong with that.
    const char* TakeBack(uint32_t poolNumber, uint32_t block);

    /// One pool at a time: EEXIST otherwise. Returns 0 or an errno.
    [[nodiscard]] int AddPool(const std::shared_ptr<ShmPool>& pool);
    void RemovePool(const ShmPool* pool);

    /// Announces a taken block of the queue's pool. Returns 0 or a negative errno: -EAGAIN the client has kEventsMax
    /// events, -EPIPE it is gone, -EINVAL the block is not taken or of another pool.
    [[nodiscard]] int Enqueue(ShmPool& pool, uint32_t block);

private:
    int AnnouncePool() const;
    int Announce(uint32_t block, uint32_t size) const;

    std::mutex mutex_;
    std::shared_ptr<const UniqueFd> socket_;  // guarded by mutex_, as is all below; null while nobody reads
    std::shared_ptr<ShmPool> pool_;
    uint32_t poolNumber_ = 0;  // of the pool announced last; they count up
    uint32_t withClient_ = 0;  // blocks of the pool
};

}  // namespace ProcMgr

#endif
