#include "platform/posix/manifest_check/name_suggestions.h"

#include <algorithm>
#include <string>

#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

/// Each costs a look at every name.
constexpr size_t kMaxSuggestions = 1000;

/// How many letters may differ; short names are near to everything.
size_t MaxDistance(const std::string& name) {
    return std::min<size_t>(3, (name.size() + 1) / 3);
}

/// The instance of a template is what stands before the '@'.
std::string PlainName(const std::string& name) {
    return name.substr(0, name.find('@'));
}

/// Empty when none is near. The application's own name is never meant: none depends on itself.
std::string NearName(const std::string& name, const std::string& own, const std::vector<std::string>& names) {
    const size_t most = MaxDistance(name);
    std::vector<std::string> candidates;
    std::copy_if(names.begin(), names.end(), std::back_inserter(candidates), [&](const std::string& candidate) {
        return candidate != own && candidate.size() <= name.size() + most && name.size() <= candidate.size() + most;
    });
    const std::string nearest = NearestOf(name, candidates);
    return !nearest.empty() && EditDistance(name, nearest) <= most ? nearest : "";
}

std::string AdviceFor(const ManifestError& error, const std::vector<std::string>& names) {
    const std::string& dependency = error.related.front();
    const std::string plain = PlainName(dependency);
    const std::string near = NearName(plain, error.application, names);
    if (near.empty()) {
        return "; correct the name or add the manifest";
    }
    // An application that is no template has no instances.
    const bool isSame = near == plain;
    return "; did you mean " + Quote(isSame ? near : near + dependency.substr(plain.size())) + "?";
}

}  // namespace

void SuggestNames(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found) {
    std::vector<std::string> names;
    names.reserve(entries.size());
    for (const ManifestEntry& entry : entries) {
        names.push_back(entry.attributes.appName);
    }
    size_t suggested = 0;
    for (ManifestError& error : found) {
        if (error.fault == ManifestFault::UNKNOWN_DEPENDENCY && ++suggested <= kMaxSuggestions) {
            error.text += AdviceFor(error, names);
        }
    }
}

}  // namespace ProcMgr
