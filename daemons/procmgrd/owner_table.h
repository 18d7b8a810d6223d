/// The group owners that are connected, and those that went away and left applications running.
#ifndef PROCMGR_PROCMGRD_OWNER_TABLE_H
#define PROCMGR_PROCMGRD_OWNER_TABLE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "daemons/procmgrd/configuration.h"
#include "daemons/procmgrd/launch/launch_spec.h"
#include "pm_agent/message_records.h"

namespace Procmgrd {

/// A connection's number; 0 is none.
using ConnectionId = uint64_t;

struct Owner {
    std::string name;
    ProcMgr::OwnerIdentity identity;
    ConnectionId connection = 0;                                       ///< 0: it went away
    Configuration configuration;                                       ///< the last one that it loaded
    std::optional<uint32_t> baseServiceState;                          ///< the last one that it reported
    std::map<std::string, ProcMgr::Message::AppExecInfo> execReports;  ///< the last one of each application
    uint64_t startRequests = 0;                                        ///< since it connected
};

class OwnerTable {
public:
    /// 0 when an owner of that name and user may come in; EADDRINUSE when it is connected already; EACCES when its
    /// applications belong to another user.
    int Admit(const std::string& name, uid_t uid) const;

    /// The owner is connected now: a new one, or one that returns. Call it only after Admit gave 0.
    Owner& Connect(const std::string& name, const ProcMgr::OwnerIdentity& identity, ConnectionId connection);

    /// The owner stays until Erase.
    void Disconnect(const std::string& name);
    void Erase(const std::string& name);

    /// Null when there is none; valid until Erase.
    Owner* Find(const std::string& name);
    Owner* FindByConnection(ConnectionId connection);

    size_t CountConnected() const { return names_.size(); }

private:
    std::map<std::string, Owner> owners_;
    std::map<ConnectionId, std::string> names_;
};

}  // namespace Procmgrd

#endif
