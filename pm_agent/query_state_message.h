/// The binary payloads of a state query and of its answer. Numbers are unsigned 32-bit in host byte order, names have
/// a length in front and no terminator:
///
///     query   count, then length and name for each application
///     answer  count, then length, name and state for each application
#ifndef PROCMGR_PM_AGENT_QUERY_STATE_MESSAGE_H
#define PROCMGR_PM_AGENT_QUERY_STATE_MESSAGE_H

#include <map>
#include <string>
#include <vector>

#include "pm_agent/request_msg.h"

namespace ProcMgr {

/// Replaces `message` by the query for `names`. False when the names do not fit; `message` is then not to be sent.
[[nodiscard]] bool WriteStateQuery(const std::vector<std::string>& names, Message::RequestMsg& message);

/// The states by name, up to the first entry that is not whole. The last of several entries of a name counts.
[[nodiscard]] std::map<std::string, unsigned int> ReadStateAnswer(const Message::RequestMsg& message);

}  // namespace ProcMgr

#endif
