/// A pool of memory blocks that another process reads: one sealed memory descriptor, block i at i times the block size.
///
/// Each block goes free -> taken (by the service) -> queued (with the client) -> free; what it does not allow is
/// refused. Which block is in which state is known here only, never read from the memory. Thread-safe.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_SHM_POOL_H
#define PROCMGR_PLATFORM_POSIX_VEK_SHM_POOL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/include/vek.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

class ShmPool {
public:
    static constexpr size_t kBytesMax = size_t{1} << 20;

    /// Returns 0 and the pool, or an errno: EINVAL for a size of 0 or over kBytesMax in all.
    [[nodiscard]] static int Make(const VEKShmPoolConfig& config, std::shared_ptr<ShmPool>& pool);
    ~ShmPool();
    ShmPool(const ShmPool&) = delete;
    ShmPool& operator=(const ShmPool&) = delete;

    const VEKShmPoolConfig& Config() const { return config_; }

    /// To be given to the client: it can map the memory for reading, and neither write nor resize it.
    int Fd() const { return fd_.Get(); }

    // These return 0 or an errno.

    /// A free block becomes a taken one of `size` bytes; ENOMEM without one, EMSGSIZE for more than the block size.
    [[nodiscard]] int Take(size_t size, uint32_t& block);
    /// To the begin of a taken block; EMSGSIZE when it does not fit into the size that was taken.
    [[nodiscard]] int Write(uint32_t block, const void* data, size_t size);
    /// A taken block becomes free.
    [[nodiscard]] int Free(uint32_t block);
    /// A taken block becomes queued.
    [[nodiscard]] int Queue(uint32_t block, uint32_t& size);
    /// A queued block becomes taken again, as it could not be sent.
    void Unqueue(uint32_t block);
    /// A queued block becomes free: the client has read it.
    [[nodiscard]] int GiveBack(uint32_t block);

private:
    enum class State { FREE, TAKEN, QUEUED };
    struct Block {
        State state = State::FREE;
        uint32_t size = 0;
    };

    ShmPool(const VEKShmPoolConfig& config, UniqueFd fd, char* memory);
    int Move(uint32_t block, State from, State to);
    size_t Bytes() const { return size_t{config_.blockSize} * config_.blockCount; }

    // Constant after construction.
    const VEKShmPoolConfig config_;
    const UniqueFd fd_;
    char* const memory_;

    std::mutex mutex_;
    std::vector<Block> blocks_;  // guarded by mutex_, as is the memory
};

}  // namespace ProcMgr

#endif
