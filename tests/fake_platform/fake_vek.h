/// Stands in for the resource-service bus: records the services, plays their clients, and keeps the events.
#ifndef PROCMGR_TESTS_FAKE_VEK_H
#define PROCMGR_TESTS_FAKE_VEK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/include/vek.h"

class FakeVek {
public:
    enum class Operation {
        REGISTER_SERVICE,
        REGISTER_QUEUE_SERVICE,
        REGISTER_POOL,
        DESTROY_POOL,
        MALLOC,
        WRITE,
        FREE,
        ENQUEUE,
    };

    struct Service {
        std::string name;
        uint32_t timeoutMs;
        VEKServiceOps ops;
    };

    struct QueueService {
        std::string name;
        uint32_t timeoutMs;
        VEKQueueOps ops;
    };

    static FakeVek& Get();

    // What happened.
    std::vector<Service> Services() const;  ///< one entry for each registration, in order
    std::vector<QueueService> QueueServices() const;
    std::vector<Operation> Calls() const;
    std::vector<std::string> Events(VEKQueueHandle queue) const;  ///< bytes of the blocks enqueued, in order
    size_t PoolCount() const;                                     ///< pools not destroyed
    size_t BlockCount() const;                                    ///< blocks neither freed nor enqueued
    std::vector<VEKShmPoolConfig> PoolConfigs() const;

    /// What the operation returns from now on; 0 at first. An operation that shall fail is recorded but not done.
    void SetResult(Operation operation, int result);

    /// A queue for a file record.
    VEKQueueHandle MakeQueue();

    /// One request of a client of the service registered last: its ioctl entry point with this buffer.
    int Ioctl(unsigned int cmd, void* buffer, size_t size) const;

    // What the C functions call.
    int RegisterService(const std::string& name, const VEKServiceOps& ops, uint32_t timeoutMs);
    int RegisterQueueService(const std::string& name, uint32_t timeoutMs, const VEKQueueOps& ops);
    int RegisterPool(const VEKShmPoolConfig& config, VEKShmPoolHandle* pool);
    int DestroyPool(VEKShmPoolHandle pool);
    int Malloc(VEKShmPoolHandle pool, size_t size, VEKShmBlockHandle* block);
    int Write(VEKShmBlockHandle block, const void* data, size_t size);
    int Free(VEKShmBlockHandle block);
    int Enqueue(VEKQueueHandle queue, VEKShmBlockHandle block);

private:
    static constexpr int kUnknownHandle = 22;

    FakeVek() = default;
    int ResultOf(Operation operation);

    mutable std::mutex mutex_;
    std::vector<Service> services_;
    std::vector<QueueService> queueServices_;
    std::vector<Operation> calls_;
    std::vector<VEKShmPoolConfig> configs_;
    std::map<Operation, int> results_;
    std::map<VEKQueueHandle, std::vector<std::string>> events_;
    std::map<VEKShmPoolHandle, VEKShmPoolConfig> pools_;
    std::map<VEKShmBlockHandle, std::string> blocks_;
    uintptr_t nextHandle_ = 1;
};

#endif
