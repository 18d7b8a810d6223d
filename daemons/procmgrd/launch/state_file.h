/// What the daemon keeps on disk so that one that was killed leaves no doubles.
///
/// Each start is written down before the application runs (Launch's BeforeExec), each end after its tree is gone. The
/// next daemon reads the file, ends what is still there and only then starts anything. The format is described in
/// docs/process-manager.md.
///
/// Survives the death of the daemon, not that of the machine: nothing is flushed to the disk, since no application
/// survives the machine either. A record of an earlier boot is ignored.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_STATE_FILE_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_STATE_FILE_H

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "daemons/procmgrd/launch/process_tree.h"
#include "daemons/procmgrd/launch/state_text.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

/// What tells this boot of the kernel from every other one.
std::string ReadBootId(const std::string& procRoot = kProcRoot);

/// One application of an earlier daemon, and those of its processes that still live.
struct Leftover {
    StateRecord record;
    std::vector<ProcessId> processes;
};

/// The applications of the file that still have processes. `runDir` is the daemon's: it helps to recognise processes
/// that left the session of their application. A file that is not there, is of an earlier boot, or that Open would
/// refuse, has none. A torn or unreadable line is passed over.
std::vector<Leftover> FindLeftovers(const std::string& path, const std::string& runDir,
                                    const std::string& procRoot = kProcRoot);

struct EndLeftoversLimits {
    std::chrono::milliseconds afterTerm{2000};  ///< from SIGTERM to SIGKILL
    std::chrono::milliseconds afterKill{2000};  ///< from SIGKILL to giving up
};

/// Ends them all: SIGTERM to each tree, SIGKILL to what is left after the limit, also to processes that appear
/// meanwhile. Blocks at most for the sum of the limits; for the daemon's start, not for its loop. Returns those that
/// still have live processes afterwards: empty is success.
std::vector<Leftover> EndLeftovers(const std::vector<Leftover>& leftovers, const std::string& runDir,
                                   const EndLeftoversLimits& limits = {});

/// The records of this daemon. One writer at a time, kept by a lock beside the file that ends with the process.
class StateFile {
public:
    /// Takes the lock <path>.lock. False with EWOULDBLOCK while another daemon has it, with EPERM when the file that is
    /// there is a link, is not a regular file, belongs to another user than root and ours or is writable by others, or
    /// with the errno of the file system. The content stays until Clear, so that a daemon that is killed while it ends
    /// leftovers still leaves them on record.
    [[nodiscard]] bool Open(const std::string& path, int& error);

    /// Starts empty; call after EndLeftovers. Replaces the file in one step.
    [[nodiscard]] bool Clear(int& error);

    /// Appends one record; after Clear. False with errno when it could not be written; the application should then not
    /// be started.
    [[nodiscard]] bool Add(const StateRecord& record, int& error);

    /// The application's tree is gone. Now and then the file is rewritten without the ended ones. A failure only
    /// leaves a record of a process that is not there any more.
    void Remove(const ProcessId& process);

    const std::map<ProcessId, StateRecord>& Records() const { return records_; }

private:
    bool Append(const std::string& line, int& error);
    bool Rewrite(int& error);

    std::string path_;
    UniqueFd lock_;
    UniqueFd file_;
    std::map<ProcessId, StateRecord> records_;
    size_t lines_ = 0;     ///< in the file
    bool isTorn_ = false;  ///< the file ends inside a line
};

}  // namespace ProcMgr

#endif
