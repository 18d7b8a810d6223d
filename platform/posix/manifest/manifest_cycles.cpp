#include "platform/posix/manifest/manifest_cycles.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/posix/manifest/manifest_text.h"
#include "platform/posix/manifest/strong_components.h"

namespace ProcMgr {
namespace {

constexpr size_t kMaxNamesOfCycle = 10;

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

/// One cycle among the members of a component, beginning with its smallest number that stands in it.
std::vector<size_t> CycleWithin(const std::vector<size_t>& component, const Successors& successors) {
    const auto isMember = [&component](size_t vertex) {
        return std::binary_search(component.begin(), component.end(), vertex);
    };
    std::unordered_map<size_t, size_t> positions;
    std::vector<size_t> path;
    size_t vertex = component.front();
    while (positions.emplace(vertex, path.size()).second) {
        path.push_back(vertex);
        vertex = *std::find_if(successors[vertex].begin(), successors[vertex].end(), isMember);
    }
    path.erase(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(positions[vertex]));
    std::rotate(path.begin(), std::min_element(path.begin(), path.end()), path.end());
    return path;
}

std::string NameCycle(const std::vector<size_t>& cycle, const std::vector<ManifestEntry>& entries) {
    std::string text;
    for (size_t i = 0; i < std::min(cycle.size(), kMaxNamesOfCycle); ++i) {
        text += entries[cycle[i]].attributes.appName + " -> ";
    }
    if (cycle.size() > kMaxNamesOfCycle) {
        text += "(" + std::to_string(cycle.size() - kMaxNamesOfCycle) + " more) -> ";
    }
    return text + entries[cycle.front()].attributes.appName;
}

/// Marks the entries of the component and notes their errors by number.
void ReportCycle(std::vector<size_t> component, const Successors& successors, const std::vector<ManifestEntry>& entries,
                 std::vector<std::string>& texts) {
    std::sort(component.begin(), component.end());
    const std::vector<size_t> cycle = CycleWithin(component, successors);
    const std::string names = NameCycle(cycle, entries);
    for (const size_t member : component) {
        texts[member] = "the dependency cycle " + names + " lets none of them start; remove one of these dependencies";
    }
}

}  // namespace

void RemoveCycles(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& errors) {
    const Successors successors = DependenciesOf(entries);
    std::vector<std::string> texts(entries.size());
    for (const std::vector<size_t>& component : StrongComponents(successors)) {
        if (component.size() > 1) {
            ReportCycle(component, successors, entries, texts);
        }
    }
    std::vector<ManifestEntry> kept;
    for (size_t i = 0; i < entries.size(); ++i) {
        if (texts[i].empty()) {
            kept.push_back(std::move(entries[i]));
            continue;
        }
        const ManifestEntry& bad = entries[i];
        errors.push_back(
            {bad.file, bad.dependsLine, bad.dependsColumn, "depends", Quote(bad.attributes.appName) + ": " + texts[i]});
    }
    entries = std::move(kept);
}

}  // namespace ProcMgr
