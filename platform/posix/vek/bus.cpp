#include "platform/posix/vek/bus.h"

#include <cerrno>
#include <utility>

#include "platform/posix/common_posix/packet_socket.h"
#include "platform/posix/vek/vek_frame.h"
#include "platform/posix/vek/vek_log.h"

namespace ProcMgr {

Bus& Bus::Get() {
    static Bus& bus = *new Bus;
    return bus;
}

int Bus::Register(const std::string& name, const ServiceEntry& entry) {
    if (!IsSocketName(name, VEK_NAME_MAX)) {
        VEK_LOG(kLogError, "Bus : the name of a service is empty, over %d bytes or holds a '/' or a control character",
                VEK_NAME_MAX);
        return EINVAL;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = services_.find(name);
    if (found != services_.end()) {
        return found->second->Replace(entry) ? 0 : EEXIST;
    }
    std::string error;
    const int result = Start(name, entry, error);
    if (result != 0) {
        VEK_LOG(kLogError, "Bus : the service %s cannot be offered: %s", name.c_str(), error.c_str());
        return result;
    }
    VEK_LOG(kLogInfo, "Bus : the service %s is offered", name.c_str());
    return 0;
}

int Bus::Start(const std::string& name, const ServiceEntry& entry, std::string& error) {
    const std::string runDir = RunDirectory();
    if (const int result = PrepareRunDirectory(runDir, error)) {
        return result;
    }
    if (!workers_.Start()) {
        error = "the threads of the bus cannot be made";
        return EAGAIN;
    }
    auto service = std::make_unique<BusService>(name, workers_, handles_);
    if (const int result = service->Start(runDir + "/" VEK_FOLDER, entry, error)) {
        return result;
    }
    services_[name] = std::move(service);
    return 0;
}

}  // namespace ProcMgr
