#include "daemons/procmgrd/owner_table.h"

#include <cerrno>

namespace Procmgrd {

int OwnerTable::Admit(const std::string& name, uid_t uid) const {
    const auto found = owners_.find(name);
    if (found == owners_.end()) {
        return 0;
    }
    if (found->second.connection != 0) {
        return EADDRINUSE;
    }
    return found->second.identity.uid == uid ? 0 : EACCES;
}

Owner& OwnerTable::Connect(const std::string& name, const ProcMgr::OwnerIdentity& identity, ConnectionId connection) {
    Owner& owner = owners_[name];
    owner.name = name;
    owner.identity = identity;
    owner.connection = connection;
    owner.startRequests = 0;
    names_[connection] = name;
    return owner;
}

void OwnerTable::Disconnect(const std::string& name) {
    Owner* const owner = Find(name);
    if (owner != nullptr) {
        names_.erase(owner->connection);
        owner->connection = 0;
    }
}

void OwnerTable::Erase(const std::string& name) {
    Disconnect(name);
    owners_.erase(name);
}

Owner* OwnerTable::Find(const std::string& name) {
    const auto found = owners_.find(name);
    return found == owners_.end() ? nullptr : &found->second;
}

Owner* OwnerTable::FindByConnection(ConnectionId connection) {
    const auto found = names_.find(connection);
    return found == names_.end() ? nullptr : Find(found->second);
}

}  // namespace Procmgrd
