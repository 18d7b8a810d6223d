/// Finds and reads the files of a record.
#ifndef SSCTL_TIMELINE_RECORD_FILES_H
#define SSCTL_TIMELINE_RECORD_FILES_H

#include <string>

#include "tools/ssctl/outcome.h"
#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

/// What was read, or, when `outcome` has a fault, what to say instead.
struct ReadRecordResult {
    TimelineRecord record;
    Outcome outcome;
};

/// `path` is a file of a record, the folder of an owner's, or a folder that holds such folders, as the run directory's
/// "timeline" does. There the owner must be named when there are several; empty: the only one.
[[nodiscard]] ReadRecordResult ReadTimelineRecord(const std::string& path, const std::string& owner);

}  // namespace Ssctl

#endif
