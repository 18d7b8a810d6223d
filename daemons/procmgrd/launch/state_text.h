/// The text of the state file: one line for each start and each end of an application, sealed by a checksum.
/// docs/process-manager.md has the format. Everything here is pure.
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_STATE_TEXT_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_STATE_TEXT_H

#include <map>
#include <string>

#include "daemons/procmgrd/launch/process_tree.h"

namespace ProcMgr {

struct StateRecord {
    std::string appName;
    std::string owner;
    ProcessId process;
};

/// The first line.
std::string StateHeader(const std::string& bootId);

std::string StartLine(const StateRecord& record);
std::string EndLine(const ProcessId& process);

/// A line of this text, which holds no newline.
std::string SealLine(const std::string& text);

/// The applications that were started and have not ended. A text of another boot has none; a torn or unreadable line is
/// passed over. Never a process whose number is 1 or less.
std::map<ProcessId, StateRecord> ReadStateText(const std::string& content, const std::string& bootId);

}  // namespace ProcMgr

#endif
