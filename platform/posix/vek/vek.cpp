#include "platform/include/vek.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>

#include "platform/posix/vek/bus.h"

using ProcMgr::Bus;
using ProcMgr::ServiceEntry;

namespace {

/// What `operation` returns; ENOMEM, negative for `sign` -1, when it ran out of memory.
template <typename Operation>
int WithoutExceptions(const Operation& operation, int sign = 1) {
    try {
        return operation();
    } catch (const std::exception&) {
        return sign * ENOMEM;
    }
}

/// A frame carries time-outs as signed numbers.
uint32_t Bounded(uint32_t timeoutMs) {
    return std::min(timeoutMs, static_cast<uint32_t>(INT32_MAX));
}

}  // namespace

int VEKRegisterService(const char* name, const VEKServiceOps* ops, uint32_t timeoutMs) {
    if (name == nullptr || ops == nullptr) {
        return EINVAL;
    }
    return WithoutExceptions([&] {
        return Bus::Get().Register(name, ServiceEntry{false, *ops, {}, Bounded(timeoutMs)});
    });
}

int VEKRegisterQueueService(const char* name, uint32_t timeoutMs, const VEKQueueOps* ops) {
    if (name == nullptr || ops == nullptr) {
        return EINVAL;
    }
    return WithoutExceptions([&] {
        return Bus::Get().Register(name, ServiceEntry{true, {}, *ops, Bounded(timeoutMs)});
    });
}

VEKQueueHandle VEKQfsFileQueue(const VekQfsMgrFile* file) {
    return file == nullptr ? nullptr : __atomic_load_n(&file->queueHandle, __ATOMIC_ACQUIRE);
}

int VEKShmRegisterPoolWithConfig(VekQfsMgrFile* file, const VEKShmPoolConfig* config, VEKShmPoolHandle* pool) {
    if (config == nullptr || pool == nullptr) {
        return EINVAL;
    }
    return WithoutExceptions([&] { return Bus::Get().Handles().AddPool(file, *config, *pool); });
}

int VEKShmDestroyPool(VEKShmPoolHandle pool) {
    return WithoutExceptions([&] { return Bus::Get().Handles().DestroyPool(pool); });
}

int VEKShmHandleMalloc(VEKShmPoolHandle pool, size_t size, VEKShmBlockHandle* block) {
    if (block == nullptr) {
        return EINVAL;
    }
    return WithoutExceptions([&] { return Bus::Get().Handles().TakeBlock(pool, size, *block); });
}

int VEKShmWrite(VEKShmBlockHandle block, const void* data, size_t size) {
    if (data == nullptr && size > 0) {
        return EINVAL;
    }
    return WithoutExceptions([&] { return Bus::Get().Handles().WriteBlock(block, data, size); });
}

int VEKShmFree(VEKShmBlockHandle block) {
    return WithoutExceptions([&] { return Bus::Get().Handles().FreeBlock(block); });
}

int VEKDataEnqueue(VEKQueueHandle queue, VEKShmBlockHandle block) {
    return WithoutExceptions([&] { return Bus::Get().Handles().Enqueue(queue, block); }, -1);
}
