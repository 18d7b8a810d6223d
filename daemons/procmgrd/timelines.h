/// The daemon's own record of what became of each start, for whoever wants to know afterwards what came up when and
/// what it waited for. One record for each owner, begun anew when the owner connects. What can't be recorded is logged
/// once and changes nothing else.
///
/// An event is stamped when it is noted, and written when the turn of the loop ends.
#ifndef PROCMGR_PROCMGRD_TIMELINES_H
#define PROCMGR_PROCMGRD_TIMELINES_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "daemons/procmgrd/timeline_file.h"
#include "platform/posix/timeline/timeline_event.h"

namespace Procmgrd {

/// Microseconds of CLOCK_MONOTONIC and since 1970.
struct TimelineStamp {
    int64_t monotonicUs = 0;
    int64_t wallUs = 0;
};

/// Of this moment.
TimelineStamp ReadTimelineClocks();

struct TimelineSettings {
    std::string folder;  ///< exists; a folder for each owner is made in it
    std::string bootId;  ///< of the kernel
    size_t owners = 64;  ///< folders; owners that come later are not recorded
    TimelineLimits limits;
    std::function<TimelineStamp()> now = ReadTimelineClocks;
};

/// Who connected.
struct TimelineOwner {
    std::string name;
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;  ///< its group may read the record
};

class Timelines {
public:
    explicit Timelines(TimelineSettings settings) : settings_(std::move(settings)) {}

    /// Begins the owner's record anew, with its first event.
    void Come(const TimelineOwner& owner);

    /// About an owner that came and was not forgotten; nothing is noted about others.
    void Note(const std::string& owner, ProcMgr::Timeline::Event event);

    /// Writes what was noted.
    void Flush();

    /// The owner's record is closed; it stays where it is.
    void Forget(const std::string& owner);

private:
    struct Record {
        TimelineFile file;
        uint64_t serial = 0;
        std::string lines;  ///< noted and not yet written
    };

    bool MakeFolder(const std::string& path, std::string& error) const;
    void Flush(const std::string& owner, Record& record);

    const TimelineSettings settings_;
    std::map<std::string, Record> records_;
};

}  // namespace Procmgrd

#endif
