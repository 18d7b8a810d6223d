/// Who waited for whom. Pure.
#ifndef SSCTL_TIMELINE_WAITS_H
#define SSCTL_TIMELINE_WAITS_H

#include <cstddef>
#include <vector>

#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

/// Fills `wave` and `waitedFor` of each row. An application waited for that of its dependencies which came up last
/// before it was asked for, of several at once for the first in name order; and one that was not asked for, for the
/// first one in name order that did not come up. Dependencies outside the span count as not being there, but for the
/// latter.
void FindWaits(std::vector<TimelineRow>& rows);

/// From the row that came up last (of several at once the last one) back over what each waited for. Empty when nothing
/// came up.
[[nodiscard]] std::vector<size_t> FindChain(const std::vector<TimelineRow>& rows);

}  // namespace Ssctl

#endif
