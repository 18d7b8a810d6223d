/// The manifests of one owner.
#ifndef PROCMGR_PROCMGRD_CONFIGURATION_H
#define PROCMGR_PROCMGRD_CONFIGURATION_H

#include <map>
#include <string>

#include "daemons/procmgrd/launch/launch_spec.h"
#include "platform/include/application_manifest.h"
#include "pm_agent/message_records.h"

namespace Procmgrd {

class Configuration {
public:
    /// Reads the manifests that `source` names, those only that `identity` may read. Each error and warning is logged
    /// under the owner's name. Errors in some of them do not hide the others: the good ones are taken. False only when
    /// there are errors and not one good manifest.
    [[nodiscard]] bool Load(const std::string& owner, const ProcMgr::OwnerIdentity& identity,
                            const ProcMgr::Message::StartupCfgInfo& source);

    /// As Load, but any error leaves everything as it was and gives false.
    [[nodiscard]] bool Reload(const std::string& owner, const ProcMgr::OwnerIdentity& identity,
                              const ProcMgr::Message::StartupCfgInfo& source);

    /// The manifest of an application, or that of its template for an instance. Null when there is none; valid until
    /// the next load.
    const ApplicationManifest* Find(const std::string& name) const;

    /// All of them, by name; valid until the next load.
    const std::map<std::string, ApplicationManifest>& All() const { return manifests_; }

private:
    std::map<std::string, ApplicationManifest> manifests_;
};

}  // namespace Procmgrd

#endif
