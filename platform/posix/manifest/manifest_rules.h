/// What may be wrong with good manifests when they meet. Each function appends what it finds.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_RULES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_RULES_H

#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// Takes later entries of a name out.
void KeepFirstOfName(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found);

/// Dependencies that are never running: nothing has the name, or a template has it. Names are unique. Says nothing
/// about a dependency on a bad entry.
void FindBadDependencies(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found);

/// True when instances are made of it. One that is started at boot under its own name makes none.
[[nodiscard]] bool IsTemplate(const ManifestEntry& entry);

/// Templates that are started at boot.
void FindTemplatesAtBoot(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found);

}  // namespace ProcMgr

#endif
