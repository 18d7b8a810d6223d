/// What is wrong between the applications of a group beside what keeps them from being loaded.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_GROUP_RULES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_GROUP_RULES_H

#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// Base applications that depend on what is not started at boot: a dependency is never started just because something
/// depends on it, so that they wait for it in vain. Names are unique.
void FindBootDependencies(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found);

}  // namespace ProcMgr

#endif
