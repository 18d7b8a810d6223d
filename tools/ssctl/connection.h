/// The way to a group owner over the resource bus: opens the service with the first request, and the event queue with
/// the first wait.
#ifndef SSCTL_CONNECTION_H
#define SSCTL_CONNECTION_H

#include <memory>
#include <string>

#include "platform/posix/ss_client/procmgr_ss.h"
#include "tools/ssctl/commands.h"
#include "tools/ssctl/events.h"

namespace Ssctl {

/// What an error of the client library means; `detail` gets what is not said by that alone.
[[nodiscard]] Delivery DeliveryOf(int error, std::string& detail);

class Connection {
public:
    Connection(std::string runDir, std::string resource);

    /// Opening and asking together take at most the request's waiting time.
    [[nodiscard]] Reply Ask(const Request& request);

private:
    struct Close {
        void operator()(ProcmgrSsFile* file) const { ProcmgrSsClose(file); }
    };

    int Open(uint32_t timeoutMs);

    const std::string runDir_;
    const std::string resource_;
    std::unique_ptr<ProcmgrSsFile, Close> file_;
};

class EventQueue {
public:
    /// Opening takes at most `openMs`.
    EventQueue(std::string runDir, std::string name, uint32_t openMs);

    [[nodiscard]] EventReply Next(const Deadline& deadline);

private:
    struct Close {
        void operator()(ProcmgrSsQueue* queue) const { ProcmgrSsCloseQueue(queue); }
    };

    int Open();

    const std::string runDir_;
    const std::string name_;
    const uint32_t openMs_;
    std::unique_ptr<ProcmgrSsQueue, Close> queue_;
};

}  // namespace Ssctl

#endif
