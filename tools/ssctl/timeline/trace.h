/// A timeline as trace events, which common trace viewers open. Pure.
#ifndef SSCTL_TIMELINE_TRACE_H
#define SSCTL_TIMELINE_TRACE_H

#include <string>

#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

/// The JSON object form of the trace-event format: a process for the group, a thread for each application, complete
/// events for what it did, flows for the critical chain. Times are CLOCK_MONOTONIC, as those of the kernel can be.
[[nodiscard]] std::string WriteTrace(const Timeline& timeline);

}  // namespace Ssctl

#endif
