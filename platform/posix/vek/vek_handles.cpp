#include "platform/posix/vek/vek_handles.h"

#include <cerrno>
#include <iterator>
#include <utility>

namespace ProcMgr {

namespace {

template <typename Map>
typename Map::mapped_type Find(const Map& map, const typename Map::key_type& key) {
    const auto found = map.find(key);
    return found == map.end() ? typename Map::mapped_type{} : found->second;
}

}  // namespace

std::shared_ptr<EventQueue> VekHandles::AddFile(const VekQfsMgrFile* file, VEKQueueHandle& handle) {
    auto queue = std::make_shared<EventQueue>();
    const std::lock_guard<std::mutex> lock(mutex_);
    handle = reinterpret_cast<VEKQueueHandle>(++lastNumber_);
    queues_[handle] = queue;
    files_[file] = {handle, queue};
    return queue;
}

void VekHandles::RemoveFile(const VekQfsMgrFile* file) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = files_.find(file);
    if (found == files_.end()) {
        return;
    }
    for (auto pool = pools_.begin(); pool != pools_.end();) {
        const bool isOfFile = pool->second.queue == found->second.queue;
        pool = isOfFile ? ErasePool(pool) : std::next(pool);
    }
    queues_.erase(found->second.handle);
    files_.erase(found);
}

/// A service that forgets its blocks must not make the table grow.
VekHandles::Pools::iterator VekHandles::ErasePool(Pools::iterator pool) {
    for (auto block = blocks_.begin(); block != blocks_.end();) {
        block = block->second.memory == pool->second.memory ? blocks_.erase(block) : std::next(block);
    }
    return pools_.erase(pool);
}

std::shared_ptr<EventQueue> VekHandles::FindQueue(const VekQfsMgrFile* file) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Find(files_, file).queue;
}

VekHandles::Pool VekHandles::FindPool(VEKShmPoolHandle handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Find(pools_, handle);
}

VekHandles::Block VekHandles::FindBlock(VEKShmBlockHandle handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Find(blocks_, handle);
}

int VekHandles::AddPool(const VekQfsMgrFile* file, const VEKShmPoolConfig& config, VEKShmPoolHandle& handle) {
    Pool pool = {nullptr, FindQueue(file)};
    if (pool.queue == nullptr) {
        return EINVAL;
    }
    int error = ShmPool::Make(config, pool.memory);
    if (error == 0) {
        error = pool.queue->AddPool(pool.memory);
    }
    if (error != 0) {
        return error;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    handle = reinterpret_cast<VEKShmPoolHandle>(++lastNumber_);
    pools_[handle] = std::move(pool);
    return 0;
}

int VekHandles::DestroyPool(VEKShmPoolHandle handle) {
    Pool pool;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = pools_.find(handle);
        if (found == pools_.end()) {
            return EINVAL;
        }
        pool = found->second;
        ErasePool(found);
    }
    pool.queue->RemovePool(pool.memory.get());
    return 0;
}

int VekHandles::TakeBlock(VEKShmPoolHandle poolHandle, size_t size, VEKShmBlockHandle& handle) {
    const Pool pool = FindPool(poolHandle);
    if (pool.memory == nullptr) {
        return EINVAL;
    }
    uint32_t index = 0;
    if (const int error = pool.memory->Take(size, index)) {
        return error;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    handle = reinterpret_cast<VEKShmBlockHandle>(++lastNumber_);
    blocks_[handle] = {pool.memory, index};
    return 0;
}

int VekHandles::WriteBlock(VEKShmBlockHandle handle, const void* data, size_t size) {
    const Block block = FindBlock(handle);
    return block.memory == nullptr ? EINVAL : block.memory->Write(block.index, data, size);
}

int VekHandles::FreeBlock(VEKShmBlockHandle handle) {
    Block block = {};
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = blocks_.find(handle);
        if (found == blocks_.end()) {
            return EINVAL;
        }
        block = std::move(found->second);
        blocks_.erase(found);
    }
    return block.memory->Free(block.index);
}

int VekHandles::Enqueue(VEKQueueHandle queueHandle, VEKShmBlockHandle blockHandle) {
    std::shared_ptr<EventQueue> queue;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        queue = Find(queues_, queueHandle);
    }
    const Block block = FindBlock(blockHandle);
    if (queue == nullptr || block.memory == nullptr) {
        return -EINVAL;
    }
    const int error = queue->Enqueue(*block.memory, block.index);
    if (error == 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        blocks_.erase(blockHandle);
    }
    return error;
}

}  // namespace ProcMgr
