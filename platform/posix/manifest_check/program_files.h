/// Looks whether the files that an application is run from are there.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_PROGRAM_FILES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_PROGRAM_FILES_H

#include <optional>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// The file that `path` names on a machine whose root is the folder `root`: links are followed there, so that an
/// absolute one stays in the folder. Empty when the links have no end. The file need not exist.
[[nodiscard]] std::optional<std::string> ResolveUnder(const std::string& root, const std::string& path);

/// Programs that are not there or may not be executed, and shared objects that are not there. A relative path starts at
/// the root. What the dynamic loader would look for in its own places is not looked for.
void FindMissingPrograms(const ManifestEntry& entry, const std::string& root, std::vector<ManifestError>& found);

}  // namespace ProcMgr

#endif
