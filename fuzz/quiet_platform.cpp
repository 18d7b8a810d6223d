#include "fuzz/quiet_platform.h"

#include <cstdarg>
#include <cstdio>

#include "platform/include/heartbeat.h"
#include "platform/include/platform_log.h"
#include "platform/include/tunor.h"

namespace {

VEKServiceOps& Service() {
    static VEKServiceOps service = {};
    return service;
}

}  // namespace

namespace Fuzz {

const VEKServiceOps& RegisteredService() {
    return Service();
}

}  // namespace Fuzz

extern "C" {

bool IsSyslogEnable(void) {
    return false;
}

void EnableSyslogState(void) {
}

int CheckLogLevel(uint32_t, int32_t) {
    return 1;
}

void KmonRecord(uint32_t, int32_t, const char* format, ...) {
    static char line[16384];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
}

int VEKRegisterService(const char*, const VEKServiceOps* ops, uint32_t) {
    Service() = *ops;
    return 0;
}

int VEKRegisterQueueService(const char*, uint32_t, const VEKQueueOps*) {
    return 0;
}

VEKQueueHandle VEKQfsFileQueue(const VekQfsMgrFile* file) {
    return file->queueHandle;
}

int VEKShmRegisterPoolWithConfig(VekQfsMgrFile*, const VEKShmPoolConfig*, VEKShmPoolHandle*) {
    return 1;
}

int VEKShmDestroyPool(VEKShmPoolHandle) {
    return 1;
}

int VEKShmHandleMalloc(VEKShmPoolHandle, size_t, VEKShmBlockHandle*) {
    return 1;
}

int VEKShmWrite(VEKShmBlockHandle, const void*, size_t) {
    return 1;
}

int VEKShmFree(VEKShmBlockHandle) {
    return 1;
}

int VEKDataEnqueue(VEKQueueHandle, VEKShmBlockHandle) {
    return -1;
}

int TunorOpen(const TunorOpenParam*) {
    return 1;
}

int TunorSendRequest(int, const TunorRequest*) {
    return 0;
}

int TunorSendResponse(int, const TunorResponse*) {
    return 0;
}

int TunorRPCSync(int, const TunorRequest*, TunorResponse*) {
    return -1;
}

int TunorTimedRPCSync(int, const TunorRequest*, TunorResponse*, uint32_t) {
    return -1;
}

int TunorClosePipe(int) {
    return 0;
}

int RegisterSendHeartBeat(const char*, size_t, const char*, size_t, HeartBeatHandle*) {
    return 1;
}

int UnregisterSendHeartBeat(HeartBeatHandle) {
    return 1;
}

}  // extern "C"
