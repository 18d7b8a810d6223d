/// Everything that can be said about the manifests of a group without running them.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_MANIFEST_CHECK_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_MANIFEST_CHECK_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

struct CheckRequest {
    std::string path;                 ///< a file or a folder
    std::optional<std::string> root;  ///< look for the programs in this folder, as if it were the target's root
};

struct CheckResult {
    size_t goodManifests = 0;          ///< how many the daemons would take
    std::vector<ManifestError> found;  ///< errors and warnings, in the order of files and lines
};

/// Reads the manifests as the process manager and a group owner with STARTUP_ENTRY_PATH do, replacement data included,
/// and looks at all of them together, also at those of which only a part is good, so that one run finds everything.
[[nodiscard]] CheckResult CheckManifests(const CheckRequest& request);

}  // namespace ProcMgr

#endif
