/// Finds the files of a group and reads what stands in them, each manifest by itself.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_FILES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_FILES_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

struct ManifestFiles {
    std::vector<ManifestEntry> entries;  ///< files in name order, entries as they stand in the file; bad ones too
    std::vector<ManifestError> errors;
    std::vector<ManifestError> warnings;
};

/// Reads as LoadManifests does.
[[nodiscard]] ManifestFiles ReadManifestFiles(const std::string& path,
                                              const std::map<std::string, std::string>& matchData, size_t mebibytes);

}  // namespace ProcMgr

#endif
