/// The pairs that replace ${KEY} in manifests.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_REPLACEMENT_DATA_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_REPLACEMENT_DATA_H

#include <map>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// A file of this name in a folder of manifests is no manifest.
inline constexpr const char* kReplacementDataFile = "replace.yaml";

/// The file that PROCMGR_REPLACE_DATA names; without it the one beside the manifests under `entryPath`: inside a
/// folder, next to a file. Empty when there is neither.
[[nodiscard]] std::string FindReplacementData(const std::string& entryPath);

/// Replaces `data` by the good pairs that stand in `file` under `key`. A file or a key that is not there gives none and
/// is no error.
void LoadReplacementData(const std::string& file, const std::string& key, std::map<std::string, std::string>& data,
                         std::vector<ManifestError>& errors);

}  // namespace ProcMgr

#endif
