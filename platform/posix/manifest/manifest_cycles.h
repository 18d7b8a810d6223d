/// Manifests that wait for each other.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_CYCLES_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_CYCLES_H

#include <cstddef>
#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// Entries that depend on each other in one circle or in several that share an entry, by number.
struct DependencyCycle {
    std::vector<size_t> members;  ///< all of them, in ascending order
    std::vector<size_t> circle;   ///< a smallest circle among them, in the order of the dependencies
};

/// The cycles, each entry in one at most, in the order of their first members. A dependency on an instance counts as
/// one on its template, because the instance inherits the template's dependencies. Names are unique.
[[nodiscard]] std::vector<DependencyCycle> FindCycles(const std::vector<ManifestEntry>& entries);

/// At most `maxNames` of its circle and of the others stand in the text.
[[nodiscard]] ManifestError DescribeCycle(const DependencyCycle& cycle, const std::vector<ManifestEntry>& entries,
                                          size_t maxNames);

/// Removes every entry that stands in a cycle and adds one error for each cycle.
void RemoveCycles(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& errors);

}  // namespace ProcMgr

#endif
