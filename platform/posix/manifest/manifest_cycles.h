/// Takes manifests out that wait for each other.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_CYCLES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_CYCLES_H

#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_loader.h"

namespace ProcMgr {

/// Removes every entry that stands in a dependency cycle and adds one error for each. A dependency on an instance
/// counts as one on its template, because the instance inherits the template's dependencies. Names are unique.
void RemoveCycles(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& errors);

}  // namespace ProcMgr

#endif
