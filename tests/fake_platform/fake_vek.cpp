#include "tests/fake_platform/fake_vek.h"

#include <cstring>

FakeVek& FakeVek::Get() {
    static FakeVek& fake = *new FakeVek;
    return fake;
}

std::vector<FakeVek::Service> FakeVek::Services() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return services_;
}

std::vector<FakeVek::QueueService> FakeVek::QueueServices() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return queueServices_;
}

std::vector<FakeVek::Operation> FakeVek::Calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<std::string> FakeVek::Events(VEKQueueHandle queue) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = events_.find(queue);
    return found == events_.end() ? std::vector<std::string>{} : found->second;
}

size_t FakeVek::PoolCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return pools_.size();
}

size_t FakeVek::BlockCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return blocks_.size();
}

std::vector<VEKShmPoolConfig> FakeVek::PoolConfigs() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return configs_;
}

void FakeVek::SetResult(Operation operation, int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    results_[operation] = result;
}

VEKQueueHandle FakeVek::MakeQueue() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto queue = reinterpret_cast<VEKQueueHandle>(nextHandle_++);
    events_[queue];
    return queue;
}

int FakeVek::Ioctl(unsigned int cmd, void* buffer, size_t size) const {
    const VEKServiceOps ops = Services().back().ops;
    VEKMgrFile file{"client", nullptr};
    VEKIoctlArg arg{size, buffer};
    return ops.ioctl(&file, cmd, &arg);
}

int FakeVek::RegisterService(const std::string& name, const VEKServiceOps& ops, uint32_t timeoutMs) {
    const std::lock_guard<std::mutex> lock(mutex_);
    services_.push_back({name, timeoutMs, ops});
    return ResultOf(Operation::REGISTER_SERVICE);
}

int FakeVek::RegisterQueueService(const std::string& name, uint32_t timeoutMs, const VEKQueueOps& ops) {
    const std::lock_guard<std::mutex> lock(mutex_);
    queueServices_.push_back({name, timeoutMs, ops});
    return ResultOf(Operation::REGISTER_QUEUE_SERVICE);
}

int FakeVek::RegisterPool(const VEKShmPoolConfig& config, VEKShmPoolHandle* pool) {
    const std::lock_guard<std::mutex> lock(mutex_);
    configs_.push_back(config);
    const int result = ResultOf(Operation::REGISTER_POOL);
    if (result == 0) {
        *pool = reinterpret_cast<VEKShmPoolHandle>(nextHandle_++);
        pools_[*pool] = config;
    }
    return result;
}

int FakeVek::DestroyPool(VEKShmPoolHandle pool) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int result = ResultOf(Operation::DESTROY_POOL);
    if (result != 0) {
        return result;
    }
    return pools_.erase(pool) == 1 ? 0 : kUnknownHandle;
}

int FakeVek::Malloc(VEKShmPoolHandle pool, size_t size, VEKShmBlockHandle* block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int result = ResultOf(Operation::MALLOC);
    if (result != 0) {
        return result;
    }
    const auto found = pools_.find(pool);
    if (found == pools_.end() || size > found->second.blockSize) {
        return kUnknownHandle;
    }
    *block = reinterpret_cast<VEKShmBlockHandle>(nextHandle_++);
    blocks_[*block] = std::string(size, '\0');
    return 0;
}

int FakeVek::Write(VEKShmBlockHandle block, const void* data, size_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int result = ResultOf(Operation::WRITE);
    if (result != 0) {
        return result;
    }
    const auto found = blocks_.find(block);
    if (found == blocks_.end() || size > found->second.size()) {
        return kUnknownHandle;
    }
    std::memcpy(found->second.data(), data, size);
    return 0;
}

int FakeVek::Free(VEKShmBlockHandle block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int result = ResultOf(Operation::FREE);
    if (result != 0) {
        return result;
    }
    return blocks_.erase(block) == 1 ? 0 : kUnknownHandle;
}

int FakeVek::Enqueue(VEKQueueHandle queue, VEKShmBlockHandle block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int result = ResultOf(Operation::ENQUEUE);
    if (result < 0) {
        return result;
    }
    const auto found = blocks_.find(block);
    const auto events = events_.find(queue);
    if (found == blocks_.end() || events == events_.end()) {
        return -kUnknownHandle;
    }
    events->second.push_back(found->second);
    blocks_.erase(found);
    return result;
}

int FakeVek::ResultOf(Operation operation) {
    calls_.push_back(operation);
    const auto found = results_.find(operation);
    return found == results_.end() ? 0 : found->second;
}

int VEKRegisterService(const char* name, const VEKServiceOps* ops, uint32_t timeoutMs) {
    return FakeVek::Get().RegisterService(name, *ops, timeoutMs);
}

int VEKRegisterQueueService(const char* name, uint32_t timeoutMs, const VEKQueueOps* ops) {
    return FakeVek::Get().RegisterQueueService(name, timeoutMs, *ops);
}

VEKQueueHandle VEKQfsFileQueue(const VekQfsMgrFile* file) {
    return __atomic_load_n(&file->queueHandle, __ATOMIC_ACQUIRE);
}

int VEKShmRegisterPoolWithConfig(VekQfsMgrFile* /*file*/, const VEKShmPoolConfig* config, VEKShmPoolHandle* pool) {
    return FakeVek::Get().RegisterPool(*config, pool);
}

int VEKShmDestroyPool(VEKShmPoolHandle pool) {
    return FakeVek::Get().DestroyPool(pool);
}

int VEKShmHandleMalloc(VEKShmPoolHandle pool, size_t size, VEKShmBlockHandle* block) {
    return FakeVek::Get().Malloc(pool, size, block);
}

int VEKShmWrite(VEKShmBlockHandle block, const void* data, size_t size) {
    return FakeVek::Get().Write(block, data, size);
}

int VEKShmFree(VEKShmBlockHandle block) {
    return FakeVek::Get().Free(block);
}

int VEKDataEnqueue(VEKQueueHandle queue, VEKShmBlockHandle block) {
    return FakeVek::Get().Enqueue(queue, block);
}
