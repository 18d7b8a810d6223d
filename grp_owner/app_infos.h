/// Entries of a change request from names alone.
#ifndef PROCMGR_GRP_OWNER_APP_INFOS_H
#define PROCMGR_GRP_OWNER_APP_INFOS_H

#include <string>
#include <vector>

#include "common/app_records.h"

namespace ProcMgr {

/// One entry per name, in the same order, each without arguments.
inline std::vector<AppInfoForServer> WithoutArguments(const std::vector<std::string>& names) {
    std::vector<AppInfoForServer> apps;
    apps.reserve(names.size());
    for (const std::string& name : names) {
        apps.push_back({name, {}, {}});
    }
    return apps;
}

}  // namespace ProcMgr

#endif
