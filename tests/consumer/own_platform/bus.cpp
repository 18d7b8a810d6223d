// This system has no bus: every service is refused.
#include <cerrno>

#include "platform/include/vek.h"

int VEKRegisterService(const char* /*name*/, const VEKServiceOps* /*ops*/, uint32_t /*timeoutMs*/) {
    return ENOSYS;
}

int VEKRegisterQueueService(const char* /*name*/, uint32_t /*timeoutMs*/, const VEKQueueOps* /*ops*/) {
    return ENOSYS;
}

VEKQueueHandle VEKQfsFileQueue(const VekQfsMgrFile* /*file*/) {
    return nullptr;
}

int VEKShmRegisterPoolWithConfig(VekQfsMgrFile* /*file*/, const VEKShmPoolConfig* /*config*/,
                                 VEKShmPoolHandle* /*pool*/) {
    return ENOSYS;
}

int VEKShmDestroyPool(VEKShmPoolHandle /*pool*/) {
    return ENOSYS;
}

int VEKShmHandleMalloc(VEKShmPoolHandle /*pool*/, size_t /*size*/, VEKShmBlockHandle* /*block*/) {
    return ENOSYS;
}

int VEKShmWrite(VEKShmBlockHandle /*block*/, const void* /*data*/, size_t /*size*/) {
    return ENOSYS;
}

int VEKShmFree(VEKShmBlockHandle /*block*/) {
    return ENOSYS;
}

int VEKDataEnqueue(VEKQueueHandle /*queue*/, VEKShmBlockHandle /*block*/) {
    return -ENOSYS;
}
