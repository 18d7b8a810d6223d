#include "platform/posix/manifest/manifest_entry.h"

#include <map>
#include <utility>

#include "platform/posix/manifest/manifest_keys.h"
#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

struct Value {
    const YamlNode* node = nullptr;
    int keyLine = 0;
    bool isGood = true;
};

/// The values of one manifest by key, each key once.
using Values = std::map<std::string, Value>;

void ReadKey(const YamlNode& key, const YamlNode& node, ReadScope& scope, Values& values,
             ApplicationAttributes& attributes) {
    if (key.kind != YamlNode::Kind::TEXT) {
        scope.Report(key, "", "wants a key but found " + Describe(key) + "; write it like 'app_name: camera'");
        return;
    }
    const ManifestKey* known = FindManifestKey(key.text);
    if (known == nullptr) {
        const std::string nearest = scope.ListsMore() ? NearestManifestKey(key.text) : "";
        scope.Report(key, key.text,
                     "unknown key; the nearest known key is " + Quote(nearest) + "; correct or remove it");
        return;
    }
    const auto [value, isNew] = values.try_emplace(key.text, Value{&node, key.line, true});
    if (!isNew) {
        scope.Report(key, key.text,
                     "duplicate key; it already stands in line " + std::to_string(value->second.keyLine) +
                         "; remove one of them");
        return;
    }
    const size_t before = scope.ErrorCount();
    ReadValue(*known, node, scope, attributes);
    value->second.isGood = scope.ErrorCount() == before;
}

/// True when the key stands there with a value that was refused, so that its absence says nothing.
bool IsBad(const Values& values, const char* key) {
    const auto found = values.find(key);
    return found != values.end() && !found->second.isGood;
}

void CheckSharedObject(const YamlNode& map, const Values& values, const ApplicationAttributes& attributes,
                       ReadScope& scope) {
    const bool hasObject = !attributes.soName.empty() || !attributes.soPath.empty();
    if (!hasObject && !IsBad(values, "so_name") && !IsBad(values, "so_path")) {
        scope.Report(map, "so_name",
                     "a shared object needs 'so_name' or 'so_path'; add a line like 'so_name: libvision.so'");
    }
}

void CheckBinPath(const YamlNode& map, const Values& values, const ApplicationAttributes& attributes,
                  ReadScope& scope) {
    const auto binPath = values.find("bin_path");
    if (binPath == values.end()) {
        scope.Report(map, "bin_path", "the key is missing; add a line like 'bin_path: /opt/robot/bin/camera'");
    } else if (attributes.binPath.empty() && binPath->second.isGood) {
        scope.Report(*binPath->second.node, "bin_path",
                     "the path is empty; write it like 'bin_path: /opt/robot/bin/camera'");
    }
}

void CheckPresence(const YamlNode& map, const Values& values, const ApplicationAttributes& attributes,
                   ReadScope& scope) {
    if (values.count("app_name") == 0) {
        scope.Report(map, "app_name", "the key is missing; add a line like 'app_name: camera'");
    }
    if (attributes.isSo) {
        CheckSharedObject(map, values, attributes, scope);
    } else if (!IsBad(values, "is_so")) {
        CheckBinPath(map, values, attributes, scope);
    }
}

/// An instance inherits the dependencies of its template, so that a template must not depend on its own instance.
void CheckSelfDependency(const Values& values, const ApplicationAttributes& attributes, ReadScope& scope) {
    for (const std::string& name : attributes.depends) {
        const bool isOwnInstance = attributes.isDynamicPara && IsInstanceOf(attributes.appName, name);
        if (name == attributes.appName || isOwnInstance) {
            scope.Report(*values.at("depends").node, "depends",
                         "the application depends on itself; remove " + Quote(name) + " from the list");
        }
    }
}

Place PlaceAt(const YamlNode& node) {
    return {node.line, node.column};
}

/// Where the values and the dependencies stand.
void NotePlaces(const Values& values, ManifestEntry& entry) {
    for (const auto& [key, value] : values) {
        if (value.isGood) {
            entry.keys.emplace(key, PlaceAt(*value.node));
        }
    }
    const auto depends = values.find("depends");
    if (depends == values.end()) {
        return;
    }
    for (const YamlNode& item : depends->second.node->items) {
        if (entry.attributes.depends.count(item.text) != 0) {
            entry.depends.emplace(item.text, PlaceAt(item));
        }
    }
}

void ReadEntry(const YamlNode& map, ReadScope& scope, std::vector<ManifestEntry>& entries) {
    if (map.kind != YamlNode::Kind::MAP) {
        scope.Report(
            map, "",
            "wants a manifest, which is a map, but found " + Describe(map) + "; write it like 'app_name: camera'");
        return;
    }
    const size_t before = scope.ErrorCount();
    ManifestEntry entry;
    Values values;
    for (size_t i = 0; i < map.keys.size(); ++i) {
        ReadKey(map.keys[i], map.items[i], scope, values, entry.attributes);
    }
    CheckPresence(map, values, entry.attributes, scope);
    CheckSelfDependency(values, entry.attributes, scope);
    if (entry.attributes.appName.empty()) {
        return;
    }
    entry.isGood = scope.ErrorCount() == before;
    entry.file = scope.File();
    NotePlaces(values, entry);
    entries.push_back(std::move(entry));
}

}  // namespace

Place ManifestEntry::PlaceOf(const std::string& key) const {
    const auto found = keys.find(key);
    return found == keys.end() ? keys.at("app_name") : found->second;
}

Place ManifestEntry::PlaceOfDependency(const std::string& name) const {
    const auto found = depends.find(name);
    return found == depends.end() ? PlaceOf("depends") : found->second;
}

ManifestError ErrorOf(const ManifestEntry& entry, ManifestFault fault, Place place, const std::string& key,
                      const std::string& text) {
    return {entry.file, place.line, place.column, key, text, fault, entry.attributes.appName};
}

void ReadEntries(const YamlNode& root, ReadScope& scope, std::vector<ManifestEntry>& entries) {
    if (root.kind != YamlNode::Kind::LIST) {
        ReadEntry(root, scope, entries);
        return;
    }
    for (const YamlNode& item : root.items) {
        ReadEntry(item, scope, entries);
    }
}

}  // namespace ProcMgr
