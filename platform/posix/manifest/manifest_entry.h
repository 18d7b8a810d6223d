/// One manifest: a YAML map of known keys.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_ENTRY_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_ENTRY_H

#include <string>
#include <vector>

#include "platform/include/application_manifest.h"
#include "platform/posix/manifest/read_scope.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {

/// A good manifest and where it stands.
struct ManifestEntry {
    ApplicationAttributes attributes;
    std::string file;
    int line = 0;  ///< of its name
    int column = 0;
    int dependsLine = 0;  ///< of its dependencies; its name's when it has none
    int dependsColumn = 0;
};

/// Appends the good manifests of one document, a map or a list of maps, and reports what is wrong with the others.
void ReadEntries(const YamlNode& root, ReadScope& scope, std::vector<ManifestEntry>& entries);

}  // namespace ProcMgr

#endif
