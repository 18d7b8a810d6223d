#include "platform/posix/manifest/manifest_rules.h"

#include <string>
#include <unordered_map>
#include <utility>

#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {
/// What stands under a name.
enum class Kind { APPLICATION, TEMPLATE, BAD };
using Names = std::unordered_map<std::string, Kind>;

Names KindsOf(const std::vector<ManifestEntry>& entries) {
    Names names;
    for (const ManifestEntry& entry : entries) {
        const Kind kind = IsTemplate(entry) ? Kind::TEMPLATE : Kind::APPLICATION;
        names.emplace(entry.attributes.appName, entry.isGood ? kind : Kind::BAD);
    }
    return names;
}

struct Problem {
    ManifestFault fault;
    std::string text;  ///< empty when there is none
};

/// Why nothing of this name can run.
Problem CheckDependency(const std::string& name, const Names& names) {
    const auto exact = names.find(name);
    if (exact != names.end()) {
        return {ManifestFault::TEMPLATE_DEPENDENCY,
                exact->second == Kind::TEMPLATE
                    ? Quote(name) + " is a template, which is never started itself; name an instance of it"
                    : ""};
    }
    const auto made = names.find(TemplateOf(name));
    const bool isMade = made != names.end() && made->second != Kind::APPLICATION;
    return {ManifestFault::UNKNOWN_DEPENDENCY,
            isMade ? "" : Quote(name) + " has no good manifest; it will never be running"};
}

}  // namespace

void KeepFirstOfName(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found) {
    std::unordered_map<std::string, std::string> places;
    std::vector<ManifestEntry> kept;
    for (ManifestEntry& entry : entries) {
        const Place name = entry.PlaceOf("app_name");
        const std::string place = entry.file + ":" + std::to_string(name.line);
        const auto [first, isNew] = places.emplace(entry.attributes.appName, place);
        if (isNew) {
            kept.push_back(std::move(entry));
            continue;
        }
        found.push_back(ErrorOf(entry, ManifestFault::DUPLICATE_NAME, name, "app_name",
                                "the manifest of " + Quote(entry.attributes.appName) +
                                    " is left out, because an earlier one has the same name: " + first->second));
    }
    entries = std::move(kept);
}

void FindBadDependencies(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found) {
    const Names names = KindsOf(entries);
    for (const ManifestEntry& entry : entries) {
        for (const std::string& name : entry.attributes.depends) {
            const Problem problem = CheckDependency(name, names);
            if (problem.text.empty()) {
                continue;
            }
            found.push_back(ErrorOf(entry, problem.fault, entry.PlaceOfDependency(name), "depends",
                                    Quote(entry.attributes.appName) + " cannot start: its dependency " + problem.text));
            found.back().related = {name};
        }
    }
}

bool IsTemplate(const ManifestEntry& entry) {
    return entry.attributes.isDynamicPara && !entry.attributes.isAutoBoot;
}

void FindTemplatesAtBoot(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found) {
    for (const ManifestEntry& entry : entries) {
        if (entry.attributes.isAutoBoot && entry.attributes.isDynamicPara) {
            found.push_back(ErrorOf(entry, ManifestFault::TEMPLATE_AT_BOOT, entry.PlaceOf("is_dynamic_para"),
                                    "is_dynamic_para",
                                    Quote(entry.attributes.appName) +
                                        " is started at boot under its own name, so that no instances are made of it"));
        }
    }
}

}  // namespace ProcMgr
