/// One manifest: a YAML map of known keys.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_ENTRY_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_ENTRY_H

#include <map>
#include <string>
#include <vector>

#include "platform/include/application_manifest.h"
#include "platform/posix/manifest/read_scope.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {

struct Place {
    int line = 0;
    int column = 0;
};

/// A manifest that has a name, and where it stands.
struct ManifestEntry {
    ApplicationAttributes attributes;  ///< of a bad one, what is good of it
    bool isGood = true;
    std::string file;
    std::map<std::string, Place> keys;     ///< the values of the good keys that it has, by key
    std::map<std::string, Place> depends;  ///< each of its dependencies that stands there literally

    /// Where the value of the key stands; the place of its name when it has no such key.
    [[nodiscard]] Place PlaceOf(const std::string& key) const;

    /// Where the dependency stands; the place of the list when it came out of replacement data.
    [[nodiscard]] Place PlaceOfDependency(const std::string& name) const;
};

/// An error at a place of the entry, with everything but its `related`.
[[nodiscard]] ManifestError ErrorOf(const ManifestEntry& entry, ManifestFault fault, Place place,
                                    const std::string& key, const std::string& text);

/// Appends the manifests of one document, a map or a list of maps, that have a good name, and reports what is wrong
/// with any.
void ReadEntries(const YamlNode& root, ReadScope& scope, std::vector<ManifestEntry>& entries);

}  // namespace ProcMgr

#endif
