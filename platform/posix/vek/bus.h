/// All services of this process, the threads that work for them, and the handles. Thread-safe. The only instance is
/// never destroyed: its threads may still work while the process exits.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_BUS_H
#define PROCMGR_PLATFORM_POSIX_VEK_BUS_H

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/posix/vek/bus_service.h"
#include "platform/posix/vek/vek_handles.h"
#include "platform/posix/vek/work_pool.h"

namespace ProcMgr {

class Bus {
public:
    static Bus& Get();

    VekHandles& Handles() { return handles_; }

    /// Returns 0 or an errno: EINVAL for a name that is none, EEXIST when the name is a queue's and would become a
    /// service's or the other way round, EADDRINUSE when another process has the name. Failures are logged.
    [[nodiscard]] int Register(const std::string& name, const ServiceEntry& entry);

private:
    Bus() = default;
    int Start(const std::string& name, const ServiceEntry& entry, std::string& error);

    VekHandles handles_;
    WorkPool workers_;
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<BusService>> services_;  // guarded by mutex_
};

}  // namespace ProcMgr

#endif
