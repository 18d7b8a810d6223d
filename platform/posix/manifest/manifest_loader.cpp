#include "platform/posix/manifest/manifest_loader.h"

#include <algorithm>
#include <utility>

#include "platform/posix/manifest/manifest_cycles.h"
#include "platform/posix/manifest/manifest_files.h"
#include "platform/posix/manifest/manifest_rules.h"
#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {

LoadResult LoadManifests(const std::string& path, const std::map<std::string, std::string>& matchData,
                         size_t mebibytes) {
    return SelectManifests(ReadManifestFiles(path, matchData, mebibytes));
}

LoadResult SelectManifests(ManifestFiles files) {
    std::vector<ManifestEntry>& entries = files.entries;
    const auto isBad = [](const ManifestEntry& entry) { return !entry.isGood; };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isBad), entries.end());
    LoadResult result;
    result.errors = std::move(files.errors);
    result.warnings = std::move(files.warnings);
    KeepFirstOfName(entries, result.warnings);
    RemoveCycles(entries, result.errors);
    FindTemplatesAtBoot(entries, result.warnings);
    FindBadDependencies(entries, result.warnings);
    for (ManifestEntry& entry : entries) {
        result.manifests.emplace_back(std::move(entry.attributes));
    }
    return result;
}

std::string TemplateOf(const std::string& name) {
    const size_t at = name.find('@');
    return at == std::string::npos || !CheckDependencyName(name).empty() ? "" : name.substr(0, at);
}

bool IsInstanceOf(const std::string& templateName, const std::string& name) {
    return !templateName.empty() && TemplateOf(name) == templateName;
}

std::string SharedObjectFile(const ApplicationManifest& manifest) {
    const std::string path = manifest.GetSoPath();
    const std::string name = manifest.GetSoName();
    const bool needsSlash = !path.empty() && !name.empty() && path.back() != '/';
    return path + (needsSlash ? "/" : "") + name;
}

}  // namespace ProcMgr
