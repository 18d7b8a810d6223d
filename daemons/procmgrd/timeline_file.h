/// The files of one session of an owner, in a folder of its own:
///
///     boot       from the connection of the owner on, up to a size
///     recent.1   what comes later: the older half of it
///     recent     and the newer one
///     before     the file "boot" of the session before
///
/// So the boot is kept whatever happens later, and so are the last events. Everything has a bound, and nothing waits
/// for a disk for long: after a write that failed or was slow no more is written.
#ifndef PROCMGR_PROCMGRD_TIMELINE_FILE_H
#define PROCMGR_PROCMGRD_TIMELINE_FILE_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

struct TimelineLimits {
    size_t bootBytes = size_t{512} * 1024;
    size_t recentBytes = size_t{128} * 1024;   ///< of each of the two; a longer line is left out
    std::chrono::milliseconds slowWrite{200};  ///< one that takes longer is the last one
};

class TimelineFile {
public:
    /// `header` begins each file; `reader` is the group that may read them.
    TimelineFile(std::string folder, std::string header, gid_t reader, TimelineLimits limits = {});

    /// Begins the session. The folder exists. False, with a sentence in `error`, when there can be no file.
    [[nodiscard]] bool Begin(std::string& error);

    /// Appends whole lines. False, with a sentence in `error`, when no more is written from now on.
    [[nodiscard]] bool Write(std::string_view lines, std::string& error);

    bool IsOpen() const { return file_.IsOpen(); }

private:
    bool Make(const char* name, std::string& error);
    bool Append(std::string_view text, std::string& error);
    bool BeginRecent(std::string& error);
    size_t Room() const;

    const std::string folder_;
    const std::string header_;
    const gid_t reader_;
    const TimelineLimits limits_;
    ProcMgr::UniqueFd file_;
    bool isBoot_ = true;
    size_t bytes_ = 0;  ///< of the file that is open
};

}  // namespace Procmgrd

#endif
