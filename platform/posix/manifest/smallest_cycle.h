/// The smallest cycle of a strongly connected component.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_SMALLEST_CYCLE_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_SMALLEST_CYCLE_H

#include <cstddef>
#include <vector>

#include "platform/posix/manifest/strong_components.h"

namespace ProcMgr {

/// A cycle through as few members of `component` as possible, in the order of the edges, beginning with its smallest
/// number. The component has at least two members, ascending. Looking from each member costs members times edges, so
/// the steps are taken from `budget`: once it is used up, the best cycle so far is the answer, and there always is one.
[[nodiscard]] std::vector<size_t> SmallestCycle(const std::vector<size_t>& component, const Successors& successors,
                                                size_t& budget);

}  // namespace ProcMgr

#endif
