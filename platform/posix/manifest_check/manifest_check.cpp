#include "platform/posix/manifest_check/manifest_check.h"

#include <algorithm>
#include <limits>
#include <map>
#include <tuple>
#include <utility>

#include "platform/posix/manifest/manifest_cycles.h"
#include "platform/posix/manifest/manifest_files.h"
#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/manifest_rules.h"
#include "platform/posix/manifest/replacement_data.h"
#include "platform/posix/manifest_check/group_rules.h"
#include "platform/posix/manifest_check/key_rules.h"
#include "platform/posix/manifest_check/name_suggestions.h"
#include "platform/posix/manifest_check/program_files.h"

namespace ProcMgr {
namespace {

using Findings = std::vector<ManifestError>;

void Append(Findings& all, Findings more) {
    std::move(more.begin(), more.end(), std::back_inserter(all));
}

void CheckTogether(std::vector<ManifestEntry>& entries, Findings& found) {
    KeepFirstOfName(entries, found);
    for (const DependencyCycle& cycle : FindCycles(entries)) {
        found.push_back(DescribeCycle(cycle, entries, std::numeric_limits<size_t>::max()));
    }
    FindTemplatesAtBoot(entries, found);
    Findings dependencies;
    FindBadDependencies(entries, dependencies);
    SuggestNames(entries, dependencies);
    Append(found, std::move(dependencies));
    FindBootDependencies(entries, found);
}

void SortByPlace(Findings& found) {
    std::stable_sort(found.begin(), found.end(), [](const ManifestError& left, const ManifestError& right) {
        return std::tie(left.file, left.line, left.column) < std::tie(right.file, right.line, right.column);
    });
}

}  // namespace

CheckResult CheckManifests(const CheckRequest& request) {
    CheckResult result;
    std::map<std::string, std::string> matchData;
    LoadReplacementData(FindReplacementData(request.path), "cfgmgr_env", matchData, result.found);
    ManifestFiles files = ReadManifestFiles(request.path, matchData, kMebibytesOfProcessManager);
    result.goodManifests = SelectManifests(files).manifests.size();
    Append(result.found, std::move(files.errors));
    Append(result.found, std::move(files.warnings));
    CheckTogether(files.entries, result.found);
    for (const ManifestEntry& entry : files.entries) {
        FindUselessKeys(entry, result.found);
        if (request.root) {
            FindMissingPrograms(entry, *request.root, result.found);
        }
    }
    SortByPlace(result.found);
    return result;
}

}  // namespace ProcMgr
