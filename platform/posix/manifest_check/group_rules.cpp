#include "platform/posix/manifest_check/group_rules.h"

#include <string>
#include <unordered_map>

#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/manifest_rules.h"
#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

using Entries = std::unordered_map<std::string, const ManifestEntry*>;

const ManifestEntry* Find(const Entries& entries, const std::string& name) {
    const auto found = entries.find(name);
    return found == entries.end() ? nullptr : found->second;
}

/// Why the dependency does not come up at boot, and what to do; empty when it does, or when something else is wrong
/// with it.
std::string CheckAtBoot(const std::string& dependency, const Entries& entries) {
    const ManifestEntry* const exact = Find(entries, dependency);
    if (exact != nullptr) {
        const bool isDriving = exact->isGood && !exact->attributes.isAutoBoot && !exact->attributes.isDynamicPara;
        return isDriving ? "is not; write 'is_auto_boot: true' there, or take it away here" : "";
    }
    const ManifestEntry* const made = Find(entries, TemplateOf(dependency));
    return made != nullptr && made->isGood && IsTemplate(*made)
               ? "is an instance, which is started on request only; take 'is_auto_boot: true' away here"
               : "";
}

}  // namespace

void FindBootDependencies(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found) {
    Entries byName;
    for (const ManifestEntry& entry : entries) {
        byName.emplace(entry.attributes.appName, &entry);
    }
    for (const ManifestEntry& entry : entries) {
        if (!entry.attributes.isAutoBoot) {
            continue;
        }
        for (const std::string& name : entry.attributes.depends) {
            const std::string problem = CheckAtBoot(name, byName);
            if (!problem.empty()) {
                found.push_back(ErrorOf(entry, ManifestFault::BOOT_DEPENDENCY, entry.PlaceOfDependency(name), "depends",
                                        Quote(entry.attributes.appName) + " is started at boot, but its dependency " +
                                            Quote(name) + " " + problem));
                found.back().related = {name};
            }
        }
    }
}

}  // namespace ProcMgr
