#include "platform/posix/manifest/manifest_cycles.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/smallest_cycle.h"
#include "platform/posix/manifest/strong_components.h"

namespace ProcMgr {
namespace {

constexpr size_t kMaxNamesInLog = 10;

/// The manifests come from outside, and the process manager reads them while everybody waits.
constexpr size_t kMaxSteps = 4000000;

Successors DependenciesOf(const std::vector<ManifestEntry>& entries) {
    std::unordered_map<std::string, size_t> numbers;
    for (size_t i = 0; i < entries.size(); ++i) {
        numbers.emplace(entries[i].attributes.appName, i);
    }
    Successors successors(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        for (const std::string& name : entries[i].attributes.depends) {
            auto found = numbers.find(name);
            if (found == numbers.end()) {
                found = numbers.find(TemplateOf(name));
            }
            if (found != numbers.end()) {
                successors[i].push_back(found->second);
            }
        }
    }
    return successors;
}

std::string NameOthers(const DependencyCycle& cycle, const std::vector<ManifestEntry>& entries, size_t maxNames) {
    std::vector<size_t> circle = cycle.circle;
    std::sort(circle.begin(), circle.end());
    std::vector<size_t> others;
    std::set_difference(cycle.members.begin(), cycle.members.end(), circle.begin(), circle.end(),
                        std::back_inserter(others));
    std::string names;
    for (size_t i = 0; i < std::min(others.size(), maxNames); ++i) {
        names += (i == 0 ? "" : ", ") + entries[others[i]].attributes.appName;
    }
    return others.size() > maxNames ? names + " and " + std::to_string(others.size() - maxNames) + " more" : names;
}

std::string NameCircle(const std::vector<size_t>& circle, const std::vector<ManifestEntry>& entries, size_t maxNames) {
    std::string text;
    for (size_t i = 0; i < std::min(circle.size(), maxNames); ++i) {
        text += entries[circle[i]].attributes.appName + " -> ";
    }
    if (circle.size() > maxNames) {
        text += "(" + std::to_string(circle.size() - maxNames) + " more) -> ";
    }
    return text + entries[circle.front()].attributes.appName;
}

}  // namespace

std::vector<DependencyCycle> FindCycles(const std::vector<ManifestEntry>& entries) {
    const Successors successors = DependenciesOf(entries);
    std::vector<DependencyCycle> cycles;
    size_t budget = kMaxSteps;
    for (std::vector<size_t>& component : StrongComponents(successors)) {
        if (component.size() > 1) {
            std::sort(component.begin(), component.end());
            std::vector<size_t> circle = SmallestCycle(component, successors, budget);
            cycles.push_back({std::move(component), std::move(circle)});
        }
    }
    std::sort(cycles.begin(), cycles.end(), [](const DependencyCycle& left, const DependencyCycle& right) {
        return left.members.front() < right.members.front();
    });
    return cycles;
}

ManifestError DescribeCycle(const DependencyCycle& cycle, const std::vector<ManifestEntry>& entries, size_t maxNames) {
    const std::string others = NameOthers(cycle, entries, maxNames);
    const ManifestEntry& first = entries[cycle.circle.front()];
    const Place place = first.PlaceOfDependency(entries[cycle.circle[1]].attributes.appName);
    ManifestError error = ErrorOf(first, ManifestFault::CYCLE, place, "depends",
                                  "the dependency cycle " + NameCircle(cycle.circle, entries, maxNames) +
                                      " lets none of them start; remove one of these dependencies" +
                                      (others.empty() ? "" : "; in circles with them stand also " + others));
    for (const size_t member : cycle.circle) {
        error.related.push_back(entries[member].attributes.appName);
    }
    return error;
}

void RemoveCycles(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& errors) {
    std::vector<bool> isBad(entries.size());
    for (const DependencyCycle& cycle : FindCycles(entries)) {
        errors.push_back(DescribeCycle(cycle, entries, kMaxNamesInLog));
        for (const size_t member : cycle.members) {
            isBad[member] = true;
        }
    }
    std::vector<ManifestEntry> kept;
    for (size_t i = 0; i < entries.size(); ++i) {
        if (!isBad[i]) {
            kept.push_back(std::move(entries[i]));
        }
    }
    entries = std::move(kept);
}

}  // namespace ProcMgr
