/// A timeline as a table and as a document. Pure.
#ifndef SSCTL_TIMELINE_TIMELINE_REPORT_H
#define SSCTL_TIMELINE_TIMELINE_REPORT_H

#include "tools/ssctl/outcome.h"
#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

[[nodiscard]] Outcome ReportTimeline(const Timeline& timeline);

}  // namespace Ssctl

#endif
