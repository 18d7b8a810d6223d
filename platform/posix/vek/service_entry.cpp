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
    int64_t position = 0;  // of the frame, 64 bits everywhere; a service's long is shorter on a 32-bit processor
    std::memcpy(&position, work.payload.data(), sizeof(position));
    auto offset = static_cast<long>(position);
    if (offset != position) {
        return -EOVERFLOW;
    }
    work.payload.resize(sizeof(position) + work.head.cmd);
    long result = entry.ops.read(&file.record, work.payload.data() + sizeof(position), work.head.cmd, &offset);
    result = result > static_cast<long>(work.head.cmd) ? -EIO : result;
    position = offset;
    std::memcpy(work.payload.data(), &position, sizeof(position));
    work.payload.resize(sizeof(position) + static_cast<size_t>(result > 0 ? result : 0));
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
