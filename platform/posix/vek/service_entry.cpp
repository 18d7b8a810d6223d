#include "platform/posix/vek/service_entry.h"

#include <cerrno>
#include <cstring>

#include "platform/posix/vek/bus_file.h"

namespace ProcMgr {

namespace {

int64_t CallOpen(const ServiceEntry& entry, BusFile& file) {
    if (entry.isQueue) {
        return entry.queueOps.open == nullptr ? 0 : entry.queueOps.open(&file.queueRecord);
    }
    return entry.ops.open == nullptr ? 0 : entry.ops.open(&file.record);
}

int64_t CallClose(const ServiceEntry& entry, BusFile& file) {
    if (entry.isQueue) {
        return entry.queueOps.close == nullptr ? 0 : entry.queueOps.close(&file.queueRecord);
    }
    return entry.ops.close == nullptr ? 0 : entry.ops.close(&file.record);
}

int64_t CallIoctl(const ServiceEntry& entry, BusFile& file, BusWork& work) {
    if (entry.ops.ioctl == nullptr) {
        return -ENOTTY;
    }
    VEKIoctlArg arg = {work.payload.size(), work.payload.data()};
    return entry.ops.ioctl(&file.record, work.head.cmd, &arg);
}

/// The payload is an offset before and after; what was read comes behind it.
int64_t CallRead(const ServiceEntry& entry, BusFile& file, BusWork& work) {
    if (entry.ops.read == nullptr) {
        return -ENOTTY;
    }
    static_assert(sizeof(long) == sizeof(int64_t), "the service's offset is that of the frame");
    long offset = 0;
    std::memcpy(&offset, work.payload.data(), sizeof(offset));
    work.payload.resize(sizeof(offset) + work.head.cmd);
    long result = entry.ops.read(&file.record, work.payload.data() + sizeof(offset), work.head.cmd, &offset);
    result = result > static_cast<long>(work.head.cmd) ? -EIO : result;
    std::memcpy(work.payload.data(), &offset, sizeof(offset));
    work.payload.resize(sizeof(offset) + static_cast<size_t>(result > 0 ? result : 0));
    return result;
}

int64_t Call(const ServiceEntry& entry, BusFile& file, BusWork& work) {
    switch (work.head.op) {
        case VEK_OPEN:
            return CallOpen(entry, file);
        case VEK_IOCTL:
            return CallIoctl(entry, file, work);
        case VEK_READ:
            return CallRead(entry, file, work);
        default:
            return CallClose(entry, file);
    }
}

}  // namespace

void CallService(const ServiceEntry& entry, BusFile& file, BusWork& work) noexcept {
    try {
        work.result = Call(entry, file, work);
    } catch (...) {
        work.result = -EIO;
    }
}

}  // namespace ProcMgr
