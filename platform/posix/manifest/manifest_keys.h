/// The table of manifest keys, and how the value of one is read into the attributes.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_KEYS_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_KEYS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "platform/include/application_manifest.h"
#include "platform/posix/manifest/read_scope.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {

using AttributeField =
    std::variant<std::string ApplicationAttributes::*, bool ApplicationAttributes::*, uint32_t ApplicationAttributes::*,
                 int32_t ApplicationAttributes::*, std::vector<std::string> ApplicationAttributes::*,
                 std::vector<int32_t> ApplicationAttributes::*, std::set<std::string> ApplicationAttributes::*,
                 std::map<std::string, std::string> ApplicationAttributes::*>;

struct ManifestKey {
    const char* name;
    AttributeField field;                                     ///< its type is the type of the value
    const char* example;                                      ///< one line of YAML
    int64_t min = 0;                                          ///< of a number
    int64_t max = 0;                                          ///< of a number
    std::string (*check)(const std::string& text) = nullptr;  ///< of each text: what is wrong with it, or nothing
};

/// One row for each key, in the order of the documentation.
const std::vector<ManifestKey>& ManifestKeys();

/// Null when there is no such key.
const ManifestKey* FindManifestKey(const std::string& name);

/// The known key nearest to `name`.
[[nodiscard]] std::string NearestManifestKey(const std::string& name);

/// Reads `value` into the field of `key` and reports what is wrong with it.
void ReadValue(const ManifestKey& key, const YamlNode& value, ReadScope& scope, ApplicationAttributes& attributes);

}  // namespace ProcMgr

#endif
