/// The command "timeline": reads a record, says what came up when, and draws it.
#ifndef SSCTL_TIMELINE_TIMELINE_COMMAND_H
#define SSCTL_TIMELINE_TIMELINE_COMMAND_H

#include <string>

#include "tools/ssctl/command_line.h"
#include "tools/ssctl/outcome.h"

namespace Ssctl {

/// What is read: the path of --record, or the run directory's records.
[[nodiscard]] std::string TimelinePath(const CommandLine& line);

/// Asks nobody, so that it works without a group owner, too.
[[nodiscard]] Outcome RunTimeline(const CommandLine& line);

}  // namespace Ssctl

#endif
