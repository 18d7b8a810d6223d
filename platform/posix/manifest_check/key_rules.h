/// Keys that do nothing of what they seem to promise.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_KEY_RULES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_KEY_RULES_H

#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// Restart policies that never restart, and keys without effect.
void FindUselessKeys(const ManifestEntry& entry, std::vector<ManifestError>& found);

}  // namespace ProcMgr

#endif
